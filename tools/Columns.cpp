#include "tools/Columns.h"

#include <algorithm>

namespace vornactl {

std::vector<std::wstring> AlignColumns(const std::vector<std::vector<std::wstring>>& rows,
                                       std::initializer_list<size_t> numbers) {
    std::vector<size_t> widths;
    for (const auto& cells : rows) {
        widths.resize(cells.size());
        for (size_t i = 0; i < cells.size(); ++i)
            widths[i] = std::max(widths[i], cells[i].size());
    }
    std::vector<std::wstring> lines;
    for (const auto& cells : rows) {
        std::wstring line;
        for (size_t i = 0; i + 1 < cells.size(); ++i) {
            const std::wstring padding(widths[i] - cells[i].size(), L' ');
            const bool number = std::find(numbers.begin(), numbers.end(), i) != numbers.end();
            line += (number ? padding + cells[i] : cells[i] + padding) + L"  ";
        }
        lines.push_back(line + cells.back());
    }
    return lines;
}

} // namespace vornactl
