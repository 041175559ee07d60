// The system's registrar: runs the module's registry scripts.
#pragma once

#include <windows.h>

#include <string>

namespace vorna {

// Runs scripts 101 and 103 of the module's resources with %MODULE% and %APPID% replaced, in registering or in removing
// mode (keys marked as kept stay).
[[nodiscard]] HRESULT RunRegistryScripts(const std::wstring& modulePath, bool registering);

} // namespace vorna
