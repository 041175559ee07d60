#include "platform/timer/ScheduleDocument.h"

#include "common/xml/XmlCharacters.h"
#include "platform/calendar/Digits.h"
#include "platform/timer/TimerRegistration.h"
#include "platform/xml/ClientDocument.h"

#include <limits>

namespace keldan {

namespace {

using namespace std::chrono;

// The defaults of optional elements.
constexpr Milliseconds DEFAULT_TIMEOUT = minutes(10);
constexpr Milliseconds DEFAULT_RETRY_FREQUENCY = seconds(5);

// Up to 2147483647, with or without a minus sign.
std::optional<std::int32_t> ParseWhole(std::wstring_view text) {
    const bool negative = Take(text, L'-');
    std::int64_t value = 0;
    for (const wchar_t digit : text) {
        value = value * 10 + (digit - L'0');
        if (digit < L'0' || digit > L'9' || value > std::numeric_limits<std::int32_t>::max())
            return std::nullopt;
    }
    if (text.empty())
        return std::nullopt;
    return static_cast<std::int32_t>(negative ? -value : value);
}

std::wstring TrimmedText(XmlDocument& document, const std::wstring& path) {
    return std::wstring(vorna::Trimmed(TextOf(document, path)));
}

// A time span of an entry; the default if it is missing or zero.
Milliseconds ReadSpan(XmlDocument& document, const std::wstring& path, Milliseconds otherwise) {
    const std::wstring text = TrimmedText(document, path);
    const CalendarStep step = text.empty() ? CalendarStep() : Required(ParseStep(text));
    return step.IsZero() ? otherwise : step.RoughLength();
}

std::int32_t ReadWhole(XmlDocument& document, const std::wstring& path, std::int32_t otherwise) {
    const std::wstring text = TrimmedText(document, path);
    return text.empty() ? otherwise : Required(ParseWhole(text));
}

NotifyEntry ReadEntry(XmlDocument& document, const std::wstring& path) {
    Require(TrimmedText(document, path + L"/@type") == L"COM");
    NotifyEntry entry;
    // The part that begins with "|" is for other types of clients.
    const std::wstring client = TextOf(document, path + L"/Client");
    entry.client = vorna::Trimmed(std::wstring_view(client).substr(0, client.find(L'|')));
    Require(!entry.client.empty());
    // Not trimmed: the cookie is returned to the client unchanged.
    entry.parameter = TextOf(document, path + L"/Parameter");
    entry.timeout = ReadSpan(document, path + L"/NotifyTimeout", DEFAULT_TIMEOUT);
    entry.retryFrequency = ReadSpan(document, path + L"/Retry/RetryFrequency", DEFAULT_RETRY_FREQUENCY);
    entry.retryAttempts = ReadWhole(document, path + L"/Retry/RetryAttempts", 0);
    Require(entry.retryAttempts >= 0);
    return entry;
}

Schedule Read(XmlDocument& document) {
    Schedule schedule;
    schedule.start = Required(ParseLocalTime(TrimmedText(document, L"/ScheduleInfo/Schedule/StartDateTime")));
    schedule.frequency = Required(ParseStep(TrimmedText(document, L"/ScheduleInfo/Schedule/Frequency")));
    Require(!schedule.frequency.IsZero());
    if (const std::wstring end = TrimmedText(document, L"/ScheduleInfo/Aging/EndDateTime"); !end.empty())
        schedule.end = Required(ParseLocalTime(end));
    schedule.agingCount = ReadWhole(document, L"/ScheduleInfo/Aging/AgingCount", -1);
    Require(schedule.agingCount >= -1 && schedule.agingCount != 0);
    const std::wstring mode = TrimmedText(document, L"/ScheduleInfo/NotificationInfo/@Mode");
    schedule.parallel = mode == L"PARALLEL";
    Require(schedule.parallel || mode.empty() || mode == L"SEQUENTIAL");
    const std::wstring entries = L"/ScheduleInfo/NotificationInfo/Notify";
    const std::size_t count = document.Select(entries).size();
    Require(count >= 1 && count <= MAXIMUM_ENTRIES);
    for (std::size_t i = 1; i <= count; ++i)
        schedule.entries.push_back(ReadEntry(document, entries + L"[" + std::to_wstring(i) + L"]"));
    return schedule;
}

} // namespace

std::optional<LocalTime> ParseLocalTime(std::wstring_view text) {
    std::int64_t fields[6];
    constexpr wchar_t SEPARATORS[] = L"--T::";
    for (int i = 0; i < 6; ++i) {
        const auto value = TakeNumber(text);
        if (!value || (i < 5 && !Take(text, SEPARATORS[i])))
            return std::nullopt;
        fields[i] = *value;
    }
    const auto [yearNumber, month, day, hour, minute, second] = fields;
    if (!text.empty() || yearNumber < 1602 || yearNumber > 9999 || month > 12 || day > 31 || hour > 23 || minute > 59 ||
        second > 59)
        return std::nullopt;
    const year_month_day date = year(static_cast<int>(yearNumber)) / static_cast<int>(month) / static_cast<int>(day);
    if (!date.ok())
        return std::nullopt;
    return local_days(date) + hours(hour) + minutes(minute) + seconds(second);
}

HRESULT ParseScheduleDocument(std::wstring_view text, Schedule& schedule) {
    const HRESULT result =
        ReadClientDocument(text, L"ScheduleInfo", [&](XmlDocument& document) { schedule = Read(document); });
    return result == vorna::RESULT_XML_MALFORMED ? E_INVALIDARG : result;
}

} // namespace keldan
