#include "platform/delivery/Receiver.h"

#include <algorithm>

namespace keldan {

namespace {

constexpr std::wstring_view PREFIX = L"progID:";
// The longest name of a registry key.
constexpr std::size_t LONGEST_PROG_ID = 255;

// Letters of every language, digits, and the other characters that ProgIDs have in practice.
bool IsProgIdCharacter(wchar_t c) {
    if (c >= 0x80)
        return true;
    return (c >= L'a' && c <= L'z') || (c >= L'A' && c <= L'Z') || (c >= L'0' && c <= L'9') || c == L'.' || c == L'_' ||
           c == L'-';
}

} // namespace

std::optional<std::wstring> ParseReceiver(std::wstring_view receiver) {
    if (!receiver.starts_with(PREFIX))
        return std::nullopt;
    receiver.remove_prefix(PREFIX.size());
    if (receiver.empty() || receiver.size() > LONGEST_PROG_ID ||
        !std::all_of(receiver.begin(), receiver.end(), IsProgIdCharacter))
        return std::nullopt;
    return std::wstring(receiver);
}

} // namespace keldan
