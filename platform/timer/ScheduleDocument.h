// Reads the ScheduleInfo documents that clients send to the timer.
#pragma once

#include "platform/timer/Schedule.h"

#include <windows.h>

#include <optional>
#include <string_view>

namespace keldan {

// E_INVALIDARG: the document is not well-formed or not a schedule: no start or frequency, a frequency of zero, values
// out of range, an element that occurs twice, no client to notify, an empty client, an unknown notify type or mode.
// schedule is undefined after a failure.
[[nodiscard]] HRESULT ParseScheduleDocument(std::wstring_view document, Schedule& schedule);

// "2006-1-5T7:3:9", with or without leading zeros; nothing for any other text, and for a day that the calendar does not
// have.
std::optional<LocalTime> ParseLocalTime(std::wstring_view text);

} // namespace keldan
