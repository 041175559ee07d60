// Runs the module's registry scripts with the system's registrar.
#pragma once

#include <windows.h>

#include <string>

namespace vorna {

// Runs scripts 101 and 103 of the module's resources with %MODULE% and %APPID% replaced. Adds the keys, or removes
// those that the scripts do not mark with NoRemove.
[[nodiscard]] HRESULT RunRegistryScripts(const std::wstring& modulePath, bool registering);

} // namespace vorna
