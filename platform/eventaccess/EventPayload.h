// The bodies of the callbacks for events that fired.
#pragma once

#include "platform/eventaccess/ModelReading.h"

#include <vector>

namespace keldan {

// The largest number of characters in a body. Data that do not fit, or that nest too deep for a parser, are left out:
// the Data element is then empty, which is reported to the debugger output.
inline constexpr std::size_t LONGEST_EVENT_BODY = 8'388'608;

// Returns the Event elements of a callback: what each XPath selects at this reading, with the current local time.
std::wstring MakeEventBody(ModelReading& reading, const std::vector<std::wstring>& xpaths);

} // namespace keldan
