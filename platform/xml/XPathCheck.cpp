#include "platform/xml/XPathCheck.h"

#include "common/com/result_error.h"

#include <algorithm>
#include <iterator>
#include <vector>

namespace keldan {

namespace {

constexpr size_t MAXIMUM_NESTING = 256;
constexpr double MAXIMUM_VISITS = 1e9;
constexpr std::wstring_view WIDE_AXES[] = {L"ancestor::",  L"ancestor-or-self::",   L"descendant::",
                                           L"following::", L"descendant-or-self::", L"preceding::"};

} // namespace

void CheckXPath(std::wstring_view xpath, size_t elements) {
    if (xpath.find(L'\0') != xpath.npos)
        throw vorna::result_error(E_INVALIDARG);
    // The visits of each level: multiplied by the number of elements once for "//", and again for each axis that can
    // reach the whole document.
    struct Level {
        double visits = 1;
        bool descends = false;
    };
    std::vector<Level> open(1);
    double most = 1;
    for (size_t i = 0; i < xpath.size(); ++i) {
        const wchar_t c = xpath[i];
        const auto rest = xpath.substr(i);
        if (c == L'"' || c == L'\'') {
            i = xpath.find(c, i + 1);
            if (i == xpath.npos)
                throw vorna::result_error(E_INVALIDARG);
        } else if (c == L'[' || c == L'(') {
            if (open.size() > MAXIMUM_NESTING)
                throw vorna::result_error(E_INVALIDARG);
            // A parenthesis is not a level: its content is evaluated as often as what surrounds it.
            open.push_back(c == L'[' ? Level{open.back().visits, false} : open.back());
        } else if ((c == L']' || c == L')') && open.size() > 1) {
            open.pop_back();
        } else if (rest.starts_with(L"//") && !open.back().descends) {
            open.back().descends = true;
            open.back().visits *= static_cast<double>(elements);
        } else if (std::any_of(std::begin(WIDE_AXES), std::end(WIDE_AXES),
                               [&](std::wstring_view axis) { return rest.starts_with(axis); })) {
            open.back().visits *= static_cast<double>(elements);
        }
        most = std::max(most, open.back().visits);
        if (most > MAXIMUM_VISITS)
            throw vorna::result_error(vorna::result_from_win32(ERROR_NOT_ENOUGH_QUOTA));
    }
}

} // namespace keldan
