#include "platform/eventaccess/ModelSubscriptionDocument.h"

#include "common/xml/XmlCharacters.h"
#include "platform/delivery/Receiver.h"
#include "platform/eventaccess/Expression.h"
#include "platform/xml/ClientDocument.h"

#include <set>

namespace keldan {

namespace {

std::vector<WatchedEvent> ReadEvents(XmlDocument& document) {
    std::vector<WatchedEvent> events;
    // In document order, so that each event is followed by its children.
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
    // Many events often have the same expressions.
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
    ModelSubscription subscription;
    subscription.client =
        Required(ParseReceiver(vorna::Trimmed(TextOf(document, L"/EventSubscription/Notification/Input/URI"))));
    // Not trimmed: the cookie is returned to the client unchanged.
    subscription.cookie = TextOf(document, L"/EventSubscription/ClientCookie");
    const std::wstring durationText = TextOf(document, L"/EventSubscription/Duration");
    if (const std::wstring_view duration = vorna::Trimmed(durationText); !duration.empty()) {
        subscription.duration = Required(ParseStep(duration));
        Require(!subscription.duration->IsZero());
    }
    subscription.events = ReadEvents(document);
    Require(!subscription.events.empty());
    CheckExpressions(subscription.events);
    return subscription;
}

} // namespace

HRESULT ParseModelSubscription(std::wstring_view text, ModelSubscription& subscription) {
    return ReadClientDocument(text, L"EventSubscription",
                              [&](XmlDocument& document) { subscription = Read(document); });
}

} // namespace keldan
