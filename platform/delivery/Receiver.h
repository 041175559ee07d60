// How clients of the event rooms name the class that is to be called back.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace keldan {

// "progID:" and a ProgID. The ProgID; nothing where the text is not that. Whether the class is registered is seen when
// it is called.
std::optional<std::wstring> ParseReceiver(std::wstring_view receiver);

} // namespace keldan
