// Foreign text on its way into markup.
#pragma once

#include <string>
#include <string_view>

namespace vorna {

// As character data of an element.
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

// As an attribute's value between double quotes. Tabs and line breaks, which a parser would turn into blanks, are kept.
inline std::wstring EscapeXmlAttribute(std::wstring_view text) {
    std::wstring escaped;
    for (wchar_t letter : EscapeXmlText(text)) {
        if (letter == L'"')
            escaped += L"&quot;";
        else if (letter == L'\t' || letter == L'\n' || letter == L'\r')
            escaped += L"&#" + std::to_wstring(static_cast<int>(letter)) + L";";
        else
            escaped += letter;
    }
    return escaped;
}

} // namespace vorna
