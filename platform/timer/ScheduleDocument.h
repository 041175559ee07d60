// Reads the ScheduleInfo documents that clients hand to the timer.
#pragma once

#include "platform/timer/Schedule.h"

#include <windows.h>

#include <optional>
#include <string_view>

namespace keldan {

// E_INVALIDARG: the document is not well-formed or not a schedule: no start or frequency, a frequency of zero, values
// out of range, nobody to notify, an empty client, an unknown notify type or mode. schedule is then undefined.
[[nodiscard]] HRESULT ParseScheduleDocument(std::wstring_view document, Schedule& schedule);

// "2006-1-5T7:3:9", padded or not; nothing for anything else, and for a day that the calendar does not have.
std::optional<LocalTime> ParseLocalTime(std::wstring_view text);

} // namespace keldan
