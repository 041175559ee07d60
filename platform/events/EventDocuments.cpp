#include "platform/events/EventDocuments.h"

#include "common/com/result_error.h"
#include "platform/xml/XmlDocument.h"

namespace keldan {

namespace {

constexpr std::size_t LONGEST_PAYLOAD = 8'388'608;

// The frame of the functions that read a document: read returns false if it is not what is expected.
template <typename Read>
HRESULT Parse(std::wstring_view text, std::wstring_view root, Read read) {
    return vorna::closed_door([&] {
        XmlDocument document(text);
        return document.RootName() == root && read(document) ? S_OK : E_INVALIDARG;
    });
}

// False where there are several; a missing element leaves the text empty.
bool ReadSingle(XmlDocument& document, std::wstring_view path, std::wstring& text) {
    const auto nodes = document.Select(path);
    text = nodes.empty() ? std::wstring() : nodes[0].Text();
    return nodes.size() <= 1;
}

} // namespace

HRESULT ParseEventSubscription(std::wstring_view text, EventRegistration& registration) {
    return Parse(text, L"SubscriptionInfo", [&](XmlDocument& document) {
        return ReadSingle(document, L"/SubscriptionInfo/EventName", registration.eventName) &&
               ReadSingle(document, L"/SubscriptionInfo/ClientCookie", registration.cookie) &&
               !registration.eventName.empty();
    });
}

HRESULT ParseEventFilter(std::wstring_view text, std::vector<EventProperty>& filters) {
    filters.clear();
    return Parse(text, L"FilterProperties", [&](XmlDocument& document) {
        bool named = false;
        bool valued = false;
        // In document order, so that each FilterOn is followed by what is in it.
        for (const XmlNode& node : document.Select(L"/FilterProperties/FilterOn | /FilterProperties/FilterOn/Name | "
                                                   L"/FilterProperties/FilterOn/Value")) {
            const std::wstring element = node.LocalName();
            if (element == L"FilterOn") {
                filters.emplace_back();
                named = valued = false;
            } else if (std::exchange(element == L"Name" ? named : valued, true)) {
                return false;
            } else {
                (element == L"Name" ? filters.back().name : filters.back().value) = node.Text();
            }
        }
        std::erase_if(filters, [](const EventProperty& filter) { return filter.name.empty(); });
        return true;
    });
}

HRESULT ParseEventProperties(std::wstring_view text, EventProperties& properties) {
    properties.clear();
    if (text.empty())
        return S_OK;
    return Parse(text, L"EventProperties", [&](XmlDocument& document) {
        const auto values = document.Select(L"/EventProperties/Property");
        const auto names = document.Select(L"/EventProperties/Property/@Name");
        if (names.size() != values.size())
            return false;
        for (std::size_t i = 0; i < values.size(); ++i) {
            const auto added = properties.insert({names[i].Text(), values[i].Text()});
            if (added.first->name.empty())
                return false;
        }
        return true;
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
