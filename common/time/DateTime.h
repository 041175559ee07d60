// Local date-times and durations: their two text forms, one addition, the comparisons.
//
// A date-time is a SYSTEMTIME in local time; day of week and milliseconds are neither read nor written. The record of
// all zeros means "no date". Nothing here logs or throws anything but std::bad_alloc.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace vorna {

// A calendar duration; 65535 in a field marks a text that did not parse (as years it means "no limit").
struct Duration {
    std::uint16_t years = 0;
    std::uint16_t months = 0;
    std::uint16_t days = 0;
    std::uint16_t hours = 0;
    std::uint16_t minutes = 0;
    std::uint16_t seconds = 0;

    bool operator==(const Duration&) const = default;
    bool IsZero() const { return *this == Duration{}; }
};

// A number of days; valid only within plus or minus 3,615,897.
struct DaySpan {
    double days = 0;
    bool valid = true;
};

SYSTEMTIME LocalNow();

// "%d-%d-%dT%d:%d:%d", no padding; the empty text for a record of all zeros.
std::wstring FormatDateTime(const SYSTEMTIME& time);
// False where the text is no date-time or lies before the current year; time then holds what was read so far.
bool ParseDateTime(std::wstring_view text, SYSTEMTIME& time);

// "P%dY%dM%dDT%dH%dM%dS"; the empty text for a duration of all zeros.
std::wstring FormatDuration(const Duration& duration);
// False where a designator is missing or a value did not parse; duration then holds what was read so far.
bool ParseDuration(std::wstring_view text, Duration& duration);

// Years and months move the calendar fields, the rest moves the day number. All zeros where no date comes out.
SYSTEMTIME AddDuration(const SYSTEMTIME& start, const Duration& duration);

DaySpan MakeDaySpan(double days, double hours, double minutes, double seconds);
// left minus right; not valid where either is no date.
DaySpan Difference(const SYSTEMTIME& left, const SYSTEMTIME& right);

// An invalid date-time is neither later nor earlier than anything.
bool IsLater(const SYSTEMTIME& left, const SYSTEMTIME& right);
// Also true where neither is a date.
bool IsLaterOrEqual(const SYSTEMTIME& left, const SYSTEMTIME& right);

} // namespace vorna
