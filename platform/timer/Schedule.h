// When a registration ticks, whom it notifies, and when it ends.
#pragma once

#include "platform/calendar/CalendarStep.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace keldan {

// Whom a tick is delivered to.
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
    // The start as the zone read it when the registration was made: frequencies of elapsed time count from here, so
    // that moving the machine to another zone does not stop them.
    Instant origin{};
    CalendarStep frequency;
    std::optional<LocalTime> end;
    // Deliveries after which the schedule ends; -1: no bound.
    std::int64_t agingCount = -1;
    bool parallel = false;
    std::vector<NotifyEntry> entries;

    // Tick number index is start + index * frequency: years and months move the calendar (a day that the month lacks
    // becomes its last), days move the calendar, the rest is real time. NEVER beyond the year 9999.
    Instant TickAt(std::int64_t index, const LocalZone& zone) const;
    // The number of the first tick after the instant; negative for one before the start.
    std::int64_t FirstAfter(Instant instant, const LocalZone& zone) const;

    bool operator==(const Schedule&) const = default;
};

} // namespace keldan
