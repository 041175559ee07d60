// Durations that move with the calendar, and their text.
#pragma once

#include "platform/calendar/Instants.h"
#include "platform/calendar/LocalZone.h"

#include <cstdint>
#include <optional>
#include <string_view>

namespace keldan {

// A calendar duration; the fields are not carried into each other.
struct CalendarStep {
    std::int64_t years = 0;
    std::int64_t months = 0;
    std::int64_t days = 0;
    std::int64_t hours = 0;
    std::int64_t minutes = 0;
    std::int64_t seconds = 0;

    bool IsZero() const { return !HasCalendarPart() && Elapsed() == Milliseconds(0); }
    bool HasCalendarPart() const { return years != 0 || months != 0 || days != 0; }
    // The part that is real elapsed time.
    Milliseconds Elapsed() const {
        return std::chrono::hours(hours) + std::chrono::minutes(minutes) + std::chrono::seconds(seconds);
    }
    // The whole, with months and years of average length.
    Milliseconds RoughLength() const;

    // A start moved by the step so many times, negative for back: years and months move the calendar (a day that the
    // month lacks becomes its last), days move the calendar, the rest is real time. origin: the start as an instant.
    // NEVER beyond the year 9999, Instant::min() before 1602. The step is not zero.
    Instant After(LocalTime start, Instant origin, std::int64_t times, const LocalZone& zone) const;

    bool operator==(const CalendarStep&) const = default;
};

// "P0Y0M1DT0H0M0S"; components may be missing, but not all. Values up to 65534.
std::optional<CalendarStep> ParseStep(std::wstring_view text);

} // namespace keldan
