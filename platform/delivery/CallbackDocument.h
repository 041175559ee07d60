// The documents that the platform's components hand to IComBaseClient::Deliver.
#pragma once

#include <string>
#include <string_view>

namespace keldan {

// <root><SubscriptionID>id</SubscriptionID><ClientCookie>cookie</ClientCookie>body</root>, with id and cookie escaped
// and body, which is markup, as it is.
std::wstring CallbackDocument(std::wstring_view root, std::wstring_view subscriptionId, std::wstring_view cookie,
                              std::wstring_view body = {});

} // namespace keldan
