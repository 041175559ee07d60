// What clients are told about events that fired.
#pragma once

#include "platform/eventaccess/ModelReading.h"

#include <vector>

namespace keldan {

// Characters of one callback's body, at most. Data that do not fit, or nest so deep that nobody could read the
// callback, are left out: the Data element is then empty, which is reported to the debugger output.
inline constexpr std::size_t LONGEST_EVENT_BODY = 8'388'608;

// The Event elements of a callback: what each XPath selects at this reading, with the local time of now.
std::wstring MakeEventBody(ModelReading& reading, const std::vector<std::wstring>& xpaths);

} // namespace keldan
