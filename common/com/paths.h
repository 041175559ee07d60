// Paths of any length, and the two forms of one path.
#pragma once

#include <string>
#include <string_view>

namespace vorna {

// The prefix that lifts the limit of MAX_PATH characters and switches off every other interpretation of a path.
inline constexpr std::wstring_view LONG_PATH = L"\\\\?\\";

// Empty if the path cannot be resolved.
std::wstring full_path(std::wstring_view path);

// The full path in the long form, without a trailing backslash: \\?\C:\folder, or \\?\UNC\machine\share. A path that is
// already in this form, names a device or cannot be resolved is returned unchanged.
std::wstring long_path(std::wstring_view path);

// The path without the prefix, for messages and for programs that do not expect it. A network path keeps it.
std::wstring plain_path(std::wstring_view path);

// True for a name that is a device in every folder, such as COM1 or nul.txt.
bool is_device_name(std::wstring_view name);

// True for a full path on a drive, in either form; false for relative paths, network paths, pipes and devices.
bool is_on_drive(std::wstring_view path);

} // namespace vorna
