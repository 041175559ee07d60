// Local date-times and durations: text forms, addition, comparisons.
//
// A date-time is a SYSTEMTIME in local time; day of week and milliseconds are neither read nor written. The record of
// all zeros means "no date". Nothing here logs; only std::bad_alloc is thrown.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace vorna {

// A calendar duration; 65535 marks a field that could not be parsed (as years it means "no limit").
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
// False if the text is not a date-time or is before the current year; time then has what was read so far.
bool ParseDateTime(std::wstring_view text, SYSTEMTIME& time);

// "P%dY%dM%dDT%dH%dM%dS"; the empty text for a duration of all zeros.
std::wstring FormatDuration(const Duration& duration);
// False if a designator is missing or a value cannot be parsed; duration then has what was read so far.
bool ParseDuration(std::wstring_view text, Duration& duration);

// Years and months move the calendar fields, the rest moves the day number. All zeros if that is not a date.
SYSTEMTIME AddDuration(const SYSTEMTIME& start, const Duration& duration);

DaySpan MakeDaySpan(double days, double hours, double minutes, double seconds);
// left minus right; not valid if either is not a date.
DaySpan Difference(const SYSTEMTIME& left, const SYSTEMTIME& right);

// An invalid date-time is neither later nor earlier than anything.
bool IsLater(const SYSTEMTIME& left, const SYSTEMTIME& right);
// Also true if neither is a date.
bool IsLaterOrEqual(const SYSTEMTIME& left, const SYSTEMTIME& right);

} // namespace vorna
