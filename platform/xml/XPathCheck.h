// Limits the cost of XPaths: MSXML cannot be interrupted while it evaluates one.
#pragma once

#include <cstddef>
#include <string_view>

namespace keldan {

// Throws result_error: E_INVALIDARG if brackets nest deeper than 256 or the path contains a null; 0x80070718
// (ERROR_NOT_ENOUGH_QUOTA) if nested predicates that each search the whole document would visit more than 1,000,000,000
// nodes. elements: the number of elements in the document.
void CheckXPath(std::wstring_view xpath, size_t elements);

} // namespace keldan
