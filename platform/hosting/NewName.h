// Names for registrations and tickets.
#pragma once

#include <string>

namespace keldan {

// A name that was never given before: hexadecimal digits and dashes. Empty where the system gives none.
std::wstring MakeNewName();

} // namespace keldan
