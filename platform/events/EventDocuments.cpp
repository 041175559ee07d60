#include "platform/events/EventDocuments.h"

#include "platform/xml/ClientDocument.h"

namespace keldan {

namespace {

constexpr std::size_t LONGEST_PAYLOAD = 8'388'608;

} // namespace

HRESULT ParseEventSubscription(std::wstring_view text, EventRegistration& registration) {
    return ReadClientDocument(text, L"SubscriptionInfo", [&](XmlDocument& document) {
        registration.eventName = TextOf(document, L"/SubscriptionInfo/EventName");
        Require(!registration.eventName.empty());
        registration.cookie = TextOf(document, L"/SubscriptionInfo/ClientCookie");
    });
}

HRESULT ParseEventFilter(std::wstring_view text, std::vector<EventProperty>& filters) {
    filters.clear();
    return ReadClientDocument(text, L"FilterProperties", [&](XmlDocument& document) {
        bool named = false;
        bool valued = false;
        // In document order, so that each FilterOn is followed by its children.
        for (const XmlNode& node : document.Select(L"/FilterProperties/FilterOn | /FilterProperties/FilterOn/Name | "
                                                   L"/FilterProperties/FilterOn/Value")) {
            const std::wstring element = node.LocalName();
            if (element == L"FilterOn") {
                filters.emplace_back();
                named = valued = false;
            } else {
                Require(!std::exchange(element == L"Name" ? named : valued, true));
                (element == L"Name" ? filters.back().name : filters.back().value) = node.Text();
            }
        }
        std::erase_if(filters, [](const EventProperty& filter) { return filter.name.empty(); });
    });
}

HRESULT ParseEventProperties(std::wstring_view text, EventProperties& properties) {
    properties.clear();
    if (text.empty())
        return S_OK;
    return ReadClientDocument(text, L"EventProperties", [&](XmlDocument& document) {
        const auto values = document.Select(L"/EventProperties/Property");
        const auto names = document.Select(L"/EventProperties/Property/@Name");
        Require(names.size() == values.size());
        for (std::size_t i = 0; i < values.size(); ++i)
            Require(!properties.insert({names[i].Text(), values[i].Text()}).first->name.empty());
    });
}

HRESULT MakePayload(std::wstring_view payload, std::wstring& body) {
    body.clear();
    if (payload.size() > LONGEST_PAYLOAD)
        return HRESULT_FROM_WIN32(ERROR_FILE_TOO_LARGE);
    return vorna::closed_door([&] {
        std::wstring made = L"<Payload>";
        if (!payload.empty())
            made += XmlDocument(payload).Text();
        made += L"</Payload>";
        // The client's parser may have the same limit of depth.
        ScanXml(L"<Event>" + made + L"</Event>");
        body = std::move(made);
        return S_OK;
    });
}

} // namespace keldan
