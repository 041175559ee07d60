// What dates and durations are read from, piece by piece.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace keldan {

// Takes one to nine digits off the front.
inline std::optional<std::int64_t> TakeNumber(std::wstring_view& text) {
    std::size_t length = 0;
    std::int64_t value = 0;
    while (length < text.size() && text[length] >= L'0' && text[length] <= L'9' && length < 10)
        value = value * 10 + (text[length++] - L'0');
    if (length == 0 || length == 10)
        return std::nullopt;
    text.remove_prefix(length);
    return value;
}

// Takes the character off the front, where it stands there.
inline bool Take(std::wstring_view& text, wchar_t character) {
    if (text.empty() || text.front() != character)
        return false;
    text.remove_prefix(1);
    return true;
}

} // namespace keldan
