// The character classes of XML 1.0.
#pragma once

#include <string_view>

namespace vorna {

constexpr bool IsXmlSpace(wchar_t c) {
    return c == L' ' || c == L'\t' || c == L'\n' || c == L'\r';
}

// For UTF-16 units; the surrogates of characters up to U+EFFFF count as letters.
constexpr bool IsNameStart(wchar_t c) {
    if (c < 0x80)
        return (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z') || c == L'_' || c == L':';
    if (c < 0x300)
        return c >= 0xC0 && c != 0xD7 && c != 0xF7;
    return (c >= 0x370 && c <= 0x1FFF && c != 0x37E) || c == 0x200C || c == 0x200D || (c >= 0x2070 && c <= 0x218F) ||
           (c >= 0x2C00 && c <= 0x2FEF) || (c >= 0x3001 && c <= 0xDB7F) || (c >= 0xDC00 && c <= 0xDFFF) ||
           (c >= 0xF900 && c <= 0xFDCF) || (c >= 0xFDF0 && c <= 0xFFFD);
}

constexpr bool IsNameCharacter(wchar_t c) {
    return IsNameStart(c) || (c >= L'0' && c <= L'9') || c == L'-' || c == L'.' || c == 0xB7 ||
           (c >= 0x300 && c <= 0x36F) || c == 0x203F || c == 0x2040;
}

constexpr bool IsXmlCharacter(unsigned long c) {
    return c == 9 || c == 10 || c == 13 || (c >= 0x20 && c <= 0xD7FF) || (c >= 0xE000 && c <= 0xFFFD) ||
           (c >= 0x10000 && c <= 0x10FFFF);
}

// The text without leading and trailing white space.
constexpr std::wstring_view Trimmed(std::wstring_view text) {
    while (!text.empty() && IsXmlSpace(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && IsXmlSpace(text.back()))
        text.remove_suffix(1);
    return text;
}

} // namespace vorna
