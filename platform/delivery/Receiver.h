// How clients of the event components name the class to call back.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace keldan {

// Returns the ProgID of "progID:" followed by a ProgID; nothing for any other text. Whether the class is registered
// becomes known when it is called.
std::optional<std::wstring> ParseReceiver(std::wstring_view receiver);

} // namespace keldan
