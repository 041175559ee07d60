// Helpers that parse dates and durations.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace keldan {

// Removes one to nine digits from the front and returns their value; nothing if the text begins otherwise.
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

// Removes the character from the front; false if the text does not begin with it.
inline bool Take(std::wstring_view& text, wchar_t character) {
    if (text.empty() || text.front() != character)
        return false;
    text.remove_prefix(1);
    return true;
}

} // namespace keldan
