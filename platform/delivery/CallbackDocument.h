// The documents that the platform's components pass to IComBaseClient::Deliver.
#pragma once

#include <string>
#include <string_view>

namespace keldan {

// <root><SubscriptionID>id</SubscriptionID><ClientCookie>cookie</ClientCookie>body</root>, with id and cookie escaped.
// body is markup and is not escaped.
std::wstring CallbackDocument(std::wstring_view root, std::wstring_view subscriptionId, std::wstring_view cookie,
                              std::wstring_view body = {});

} // namespace keldan
