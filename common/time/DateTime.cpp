#include "common/time/DateTime.h"

#include <oleauto.h>

#include <cmath>
#include <cwchar>
#include <optional>

namespace vorna {

namespace {

constexpr std::uint16_t FAILED_VALUE = 65535;
constexpr std::int64_t SECONDS_PER_DAY = 86400;
constexpr double LARGEST_SPAN = 3615897;
// Automation dates run from 1 January 100 to 31 December 9999. Years below 100 are two-digit years to the system, which
// moves them into its own century window: here they are not valid.
constexpr int FIRST_YEAR = 100;
constexpr int LAST_YEAR = 9999;
constexpr std::int64_t FIRST_DAY = -657434;
constexpr std::int64_t LAST_DAY = 2958465;
constexpr size_t TEXT_BUFFER = 1024;

bool IsBlank(wchar_t character) {
    return character == L' ' || (character >= L'\t' && character <= L'\r');
}

// The number at the position, modulo 65536 for any number of digits; 0 if there is no digit.
std::uint16_t ReadNumber(std::wstring_view text, size_t position) {
    while (position < text.size() && IsBlank(text[position]))
        ++position;
    bool negative = false;
    if (position < text.size() && (text[position] == L'-' || text[position] == L'+'))
        negative = text[position++] == L'-';
    // Unsigned arithmetic wraps at a multiple of 65536, so the low 16 bits are right for any number of digits.
    std::uint32_t value = 0;
    for (; position < text.size() && text[position] >= L'0' && text[position] <= L'9'; ++position)
        value = value * 10 + static_cast<std::uint32_t>(text[position] - L'0');
    return static_cast<std::uint16_t>(negative ? 0 - value : value);
}

// Finds separators one after another and reads the number after each. The step that does not find its separator leaves
// its value unchanged; the values of all later steps are 65535.
class NumberChain {
  public:
    explicit NumberChain(std::wstring_view text) : text_(text) {}

    // The empty separator reads at the current position.
    bool Read(std::wstring_view separator, std::uint16_t& value) {
        if (!position_) {
            value = FAILED_VALUE;
            return false;
        }
        size_t found = text_.find(separator, *position_);
        if (found == std::wstring_view::npos) {
            position_.reset();
            return false;
        }
        position_ = found + separator.size();
        value = ReadNumber(text_, *position_);
        return true;
    }

  private:
    std::wstring_view text_;
    std::optional<size_t> position_ = 0;
};

// The seconds from 30 December 1899 to a date so many years after the given one; nullopt if that is not a date. Whether
// the month has the day is left to the system. Automation dates are fractions of a day; with whole seconds instead,
// conversions are exact and equal times compare equal.
std::optional<std::int64_t> SecondsOf(const SYSTEMTIME& time, int yearsLater = 0) {
    const int year = time.wYear + yearsLater;
    // Checked here because systems differ: some accept month 0 as the previous December.
    if (year < FIRST_YEAR || year > LAST_YEAR || time.wMonth < 1 || time.wMonth > 12 || time.wDay < 1 ||
        time.wDay > 31 || time.wHour > 23 || time.wMinute > 59 || time.wSecond > 59)
        return std::nullopt;
    SYSTEMTIME midnight{};
    midnight.wYear = static_cast<WORD>(year);
    midnight.wMonth = time.wMonth;
    midnight.wDay = time.wDay;
    double day = 0;
    if (!SystemTimeToVariantTime(&midnight, &day))
        return std::nullopt;
    return std::llround(day) * SECONDS_PER_DAY + time.wHour * 3600LL + time.wMinute * 60LL + time.wSecond;
}

// All zeros if the seconds are outside the range of automation dates.
SYSTEMTIME TimeOf(std::int64_t seconds) {
    std::int64_t day = seconds / SECONDS_PER_DAY;
    std::int64_t rest = seconds % SECONDS_PER_DAY;
    if (rest < 0) {
        rest += SECONDS_PER_DAY;
        --day;
    }
    SYSTEMTIME time{};
    if (day < FIRST_DAY || day > LAST_DAY || !VariantTimeToSystemTime(static_cast<double>(day), &time))
        return {};
    time.wDayOfWeek = 0;
    time.wHour = static_cast<WORD>(rest / 3600);
    time.wMinute = static_cast<WORD>(rest / 60 % 60);
    time.wSecond = static_cast<WORD>(rest % 60);
    return time;
}

DaySpan SpanOf(double days) {
    return {days, days >= -LARGEST_SPAN && days <= LARGEST_SPAN};
}

template <typename... Numbers>
std::wstring Print(const wchar_t* format, Numbers... numbers) {
    wchar_t buffer[TEXT_BUFFER];
    const int length = std::swprintf(buffer, TEXT_BUFFER, format, numbers...);
    return length > 0 ? std::wstring(buffer, static_cast<size_t>(length)) : std::wstring();
}

} // namespace

SYSTEMTIME LocalNow() {
    SYSTEMTIME now{};
    GetLocalTime(&now);
    now.wDayOfWeek = 0;
    now.wMilliseconds = 0;
    return now;
}

std::wstring FormatDateTime(const SYSTEMTIME& time) {
    if (!time.wYear && !time.wMonth && !time.wDay && !time.wHour && !time.wMinute && !time.wSecond)
        return {};
    return Print(L"%d-%d-%dT%d:%d:%d", time.wYear, time.wMonth, time.wDay, time.wHour, time.wMinute, time.wSecond);
}

bool ParseDateTime(std::wstring_view text, SYSTEMTIME& time) {
    NumberChain chain(text);
    return chain.Read(L"", time.wYear) && time.wYear >= LocalNow().wYear && chain.Read(L"-", time.wMonth) &&
           time.wMonth >= 1 && time.wMonth <= 12 && chain.Read(L"-", time.wDay) && time.wDay >= 1 && time.wDay <= 31 &&
           chain.Read(L"T", time.wHour) && time.wHour < 24 && chain.Read(L":", time.wMinute) && time.wMinute < 60 &&
           chain.Read(L":", time.wSecond) && time.wSecond < 60;
}

std::wstring FormatDuration(const Duration& duration) {
    if (duration.IsZero())
        return {};
    return Print(L"P%dY%dM%dDT%dH%dM%dS", duration.years, duration.months, duration.days, duration.hours,
                 duration.minutes, duration.seconds);
}

bool ParseDuration(std::wstring_view text, Duration& duration) {
    if (!text.starts_with(L'P'))
        return false;
    NumberChain chain(text);
    chain.Read(L"P", duration.years);
    chain.Read(L"Y", duration.months);
    chain.Read(L"M", duration.days);
    chain.Read(L"T", duration.hours);
    chain.Read(L"H", duration.minutes);
    // A missing "M" is not a failure: the seconds keep the caller's value.
    chain.Read(L"M", duration.seconds);
    return duration.years != FAILED_VALUE && duration.months != FAILED_VALUE && duration.days != FAILED_VALUE &&
           duration.hours != FAILED_VALUE && duration.minutes != FAILED_VALUE && duration.seconds != FAILED_VALUE;
}

SYSTEMTIME AddDuration(const SYSTEMTIME& start, const Duration& duration) {
    if (!SecondsOf(start))
        return {};
    // Years are added without wrapping: 65535 years must end after every date, not in the previous year.
    SYSTEMTIME moved = start;
    int years = duration.years;
    moved.wMonth = static_cast<WORD>(start.wMonth + duration.months);
    if (moved.wMonth > 12) {
        years += moved.wMonth / 12;
        moved.wMonth %= 12;
    }
    const std::optional<std::int64_t> seconds = SecondsOf(moved, years);
    const DaySpan span = MakeDaySpan(duration.days, duration.hours, duration.minutes, duration.seconds);
    if (!seconds || !span.valid)
        return {};
    return TimeOf(*seconds + std::llround(span.days * static_cast<double>(SECONDS_PER_DAY)));
}

DaySpan MakeDaySpan(double days, double hours, double minutes, double seconds) {
    return SpanOf(days + hours / 24 + minutes / 1440 + seconds / static_cast<double>(SECONDS_PER_DAY));
}

DaySpan Difference(const SYSTEMTIME& left, const SYSTEMTIME& right) {
    std::optional<std::int64_t> leftSeconds = SecondsOf(left);
    std::optional<std::int64_t> rightSeconds = SecondsOf(right);
    if (!leftSeconds || !rightSeconds)
        return {0, false};
    return SpanOf(static_cast<double>(*leftSeconds - *rightSeconds) / static_cast<double>(SECONDS_PER_DAY));
}

bool IsLater(const SYSTEMTIME& left, const SYSTEMTIME& right) {
    std::optional<std::int64_t> leftSeconds = SecondsOf(left);
    std::optional<std::int64_t> rightSeconds = SecondsOf(right);
    return leftSeconds && rightSeconds && *leftSeconds > *rightSeconds;
}

bool IsLaterOrEqual(const SYSTEMTIME& left, const SYSTEMTIME& right) {
    return IsLater(left, right) || SecondsOf(left) == SecondsOf(right);
}

} // namespace vorna
