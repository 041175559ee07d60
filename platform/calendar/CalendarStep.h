// Calendar durations, and their text form.
#pragma once

#include "platform/calendar/Instants.h"
#include "platform/calendar/LocalZone.h"

#include <cstdint>
#include <optional>
#include <string_view>

namespace keldan {

// A calendar duration; the fields are independent of each other, so 90 minutes are not 1 hour and 30 minutes.
struct CalendarStep {
    std::int64_t years = 0;
    std::int64_t months = 0;
    std::int64_t days = 0;
    std::int64_t hours = 0;
    std::int64_t minutes = 0;
    std::int64_t seconds = 0;

    bool IsZero() const { return !HasCalendarPart() && Elapsed() == Milliseconds(0); }
    bool HasCalendarPart() const { return years != 0 || months != 0 || days != 0; }
    // The part that is elapsed time.
    Milliseconds Elapsed() const {
        return std::chrono::hours(hours) + std::chrono::minutes(minutes) + std::chrono::seconds(seconds);
    }
    // The whole duration, with months and years of average length.
    Milliseconds RoughLength() const;

    // The start moved by that many steps, backwards if times is negative. Years and months are added to the date (a day
    // that the month does not have becomes its last day), then days, then elapsed time. origin: the start as an
    // instant. Returns NEVER after the year 9999, Instant::min() before 1602. The step must not be zero.
    Instant After(LocalTime start, Instant origin, std::int64_t times, const LocalZone& zone) const;

    bool operator==(const CalendarStep&) const = default;
};

// "P0Y0M1DT0H0M0S"; components may be missing, but not all of them. Values up to 65534.
std::optional<CalendarStep> ParseStep(std::wstring_view text);

} // namespace keldan
