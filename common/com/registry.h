// Strings in the registry.
#pragma once

#include <windows.h>

#include <optional>
#include <string>

namespace vorna {

// A string value with its environment variables expanded; nullopt if it does not exist or cannot be read. name: null
// for the key's default value.
std::optional<std::wstring> registry_text(HKEY root, const std::wstring& key, const wchar_t* name);

} // namespace vorna
