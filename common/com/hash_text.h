// A hash of a text that all processes compute alike, for names of objects that they share.
#pragma once

#include <cstdint>
#include <string_view>

namespace vorna {

// FNV-1a with 64 bits, over characters instead of bytes. Not cryptographic.
constexpr std::uint64_t hash_text(std::wstring_view text) {
    std::uint64_t hash = 14695981039346656037ull;
    for (const wchar_t character : text)
        hash = (hash ^ character) * 1099511628211ull;
    return hash;
}

} // namespace vorna
