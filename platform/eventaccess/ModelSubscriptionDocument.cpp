#include "platform/eventaccess/ModelSubscriptionDocument.h"

#include "common/com/result_error.h"
#include "common/xml/XmlCharacters.h"
#include "platform/delivery/Receiver.h"
#include "platform/eventaccess/Expression.h"
#include "platform/xml/XmlDocument.h"

#include <set>

namespace keldan {

namespace {

void Require(bool condition) {
    if (!condition)
        throw vorna::result_error(E_INVALIDARG);
}

// The text of the one element; empty where there is none. Two of them contradict each other.
std::wstring TextOf(XmlDocument& document, std::wstring_view path) {
    const auto nodes = document.Select(path);
    Require(nodes.size() <= 1);
    return nodes.empty() ? std::wstring() : nodes[0].Text();
}

std::vector<WatchedEvent> ReadEvents(XmlDocument& document) {
    std::vector<WatchedEvent> events;
    // In document order, so that each event is followed by what is in it.
    for (const XmlNode& node : document.Select(L"/EventSubscription/Event | /EventSubscription/Event/XPath | "
                                               L"/EventSubscription/Event/Trigger | /EventSubscription/Event/Reset")) {
        const std::wstring name = node.LocalName();
        if (name == L"Event") {
            Require(events.size() < MAXIMUM_WATCHED_EVENTS);
            events.emplace_back();
            continue;
        }
        WatchedEvent& event = events.back();
        std::wstring& text = name == L"XPath" ? event.xpath : name == L"Trigger" ? event.trigger : event.reset;
        Require(text.empty());
        text = vorna::Trimmed(node.Text());
    }
    return events;
}

void CheckExpressions(const std::vector<WatchedEvent>& events) {
    // Many events often ask alike.
    std::set<std::wstring_view> selections;
    std::set<std::wstring_view> conditions;
    for (const WatchedEvent& event : events) {
        if (selections.insert(event.xpath).second)
            Require(IsSelection(event.xpath));
        for (const std::wstring* condition : {&event.trigger, &event.reset})
            if (!condition->empty() && conditions.insert(*condition).second)
                Require(IsCondition(*condition));
    }
}

ModelSubscription Read(XmlDocument& document) {
    Require(document.RootName() == L"EventSubscription");
    ModelSubscription subscription;
    const auto client = ParseReceiver(vorna::Trimmed(TextOf(document, L"/EventSubscription/Notification/Input/URI")));
    Require(client.has_value());
    subscription.client = *client;
    // As it stands: a cookie is the client's own.
    subscription.cookie = TextOf(document, L"/EventSubscription/ClientCookie");
    const std::wstring durationText = TextOf(document, L"/EventSubscription/Duration");
    if (const std::wstring_view duration = vorna::Trimmed(durationText); !duration.empty()) {
        subscription.duration = ParseStep(duration);
        Require(subscription.duration && !subscription.duration->IsZero());
    }
    subscription.events = ReadEvents(document);
    Require(!subscription.events.empty());
    CheckExpressions(subscription.events);
    return subscription;
}

} // namespace

HRESULT ParseModelSubscription(std::wstring_view text, ModelSubscription& subscription) {
    return vorna::closed_door([&] {
        XmlDocument document(text);
        subscription = Read(document);
        return S_OK;
    });
}

} // namespace keldan
