// Tables for people to read.
#pragma once

#include <initializer_list>
#include <string>
#include <vector>

namespace vornactl {

// One line for each row, columns aligned; the last column is not padded. numbers: the columns that are aligned to the
// right. All rows have the same number of cells.
std::vector<std::wstring> AlignColumns(const std::vector<std::vector<std::wstring>>& rows,
                                       std::initializer_list<size_t> numbers);

} // namespace vornactl
