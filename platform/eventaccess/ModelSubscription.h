// What a client subscribes to: the events in one data model, and the class to call.
#pragma once

#include "platform/calendar/CalendarStep.h"

#include <optional>
#include <string>
#include <vector>

namespace keldan {

// XPath expressions. Without a trigger the event is every change of what xpath selects. A reset requires a trigger.
struct WatchedEvent {
    std::wstring xpath;
    std::wstring trigger;
    std::wstring reset;

    bool operator==(const WatchedEvent&) const = default;
};

// The largest number of events in one subscription.
inline constexpr std::size_t MAXIMUM_WATCHED_EVENTS = 256;

struct ModelSubscription {
    // The ProgID of the class to call.
    std::wstring client;
    std::wstring cookie;
    // If absent, the subscription has no end.
    std::optional<CalendarStep> duration;
    std::vector<WatchedEvent> events;
};

} // namespace keldan
