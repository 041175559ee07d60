// What a path may ask of a document: MSXML cannot be stopped once it evaluates.
#pragma once

#include <cstddef>
#include <string_view>

namespace keldan {

// Throws result_error: E_INVALIDARG where brackets nest deeper than 256 or the path holds a null; 0x80070718
// (ERROR_NOT_ENOUGH_QUOTA) where predicates within predicates, each of them looking through the whole document, would
// visit more than 1,000,000,000 nodes. elements: the size of the document.
void CheckXPath(std::wstring_view xpath, size_t elements);

} // namespace keldan
