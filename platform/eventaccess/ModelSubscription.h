// What a client asks for: the events in one data model, and whom they are told to.
#pragma once

#include "platform/calendar/CalendarStep.h"

#include <optional>
#include <string>
#include <vector>

namespace keldan {

// XPath expressions; without a trigger every change of what xpath selects is the event. A reset goes with a trigger.
struct WatchedEvent {
    std::wstring xpath;
    std::wstring trigger;
    std::wstring reset;

    bool operator==(const WatchedEvent&) const = default;
};

// Events of one subscription, at most.
inline constexpr std::size_t MAXIMUM_WATCHED_EVENTS = 256;

struct ModelSubscription {
    // The ProgID of the class to call.
    std::wstring client;
    std::wstring cookie;
    // None: without end.
    std::optional<CalendarStep> duration;
    std::vector<WatchedEvent> events;
};

} // namespace keldan
