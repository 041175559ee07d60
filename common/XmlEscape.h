// Text as character data of an element.
#pragma once

#include <string>
#include <string_view>

namespace vorna {

inline std::wstring EscapeXmlText(std::wstring_view text) {
    std::wstring escaped;
    escaped.reserve(text.size());
    for (wchar_t letter : text) {
        if (letter == L'&')
            escaped += L"&amp;";
        else if (letter == L'<')
            escaped += L"&lt;";
        else if (letter == L'>')
            escaped += L"&gt;";
        else
            escaped += letter;
    }
    return escaped;
}

} // namespace vorna
