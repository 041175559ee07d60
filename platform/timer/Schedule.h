// When a registration ticks, which clients it notifies, and when it ends.
#pragma once

#include "platform/calendar/CalendarStep.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace keldan {

// One client that each tick is delivered to.
struct NotifyEntry {
    std::wstring client; // a ProgID
    std::wstring parameter;
    Milliseconds timeout{};
    std::int32_t retryAttempts = 0;
    Milliseconds retryFrequency{};

    bool operator==(const NotifyEntry&) const = default;
};

struct Schedule {
    LocalTime start{};
    // The start as an instant, by the rules of the zone at the time of the registration. Elapsed time counts from it,
    // so that moving the machine to another zone does not stop the ticks.
    Instant origin{};
    CalendarStep frequency;
    std::optional<LocalTime> end;
    // The number of deliveries after which the schedule ends; -1: unlimited.
    std::int64_t agingCount = -1;
    bool parallel = false;
    std::vector<NotifyEntry> entries;

    // Tick number index is start + index * frequency: years and months are added to the date (a day that the month does
    // not have becomes its last day), then days, then elapsed time. NEVER after the year 9999.
    Instant TickAt(std::int64_t index, const LocalZone& zone) const;
    // The number of the first tick after the instant; negative for one before the start.
    std::int64_t FirstAfter(Instant instant, const LocalZone& zone) const;

    bool operator==(const Schedule&) const = default;
};

} // namespace keldan
