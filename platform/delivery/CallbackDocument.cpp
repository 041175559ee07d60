#include "platform/delivery/CallbackDocument.h"

#include "common/xml/XmlEscape.h"

namespace keldan {

std::wstring CallbackDocument(std::wstring_view root, std::wstring_view subscriptionId, std::wstring_view cookie,
                              std::wstring_view body) {
    std::wstring document;
    document.reserve(128 + 2 * root.size() + subscriptionId.size() + cookie.size() + body.size());
    document.append(L"<").append(root).append(L"><SubscriptionID>");
    vorna::AppendEscaped(document, subscriptionId);
    document.append(L"</SubscriptionID><ClientCookie>");
    vorna::AppendEscaped(document, cookie);
    document.append(L"</ClientCookie>").append(body).append(L"</").append(root).append(L">");
    return document;
}

} // namespace keldan
