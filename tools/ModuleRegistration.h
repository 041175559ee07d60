// Registration of the component and of the reference platform, each through its own entry points.
#pragma once

#include <filesystem>

namespace vornactl {

// Registers the modules in the folder: Vorna.dll, which must exist, and the platform's QXKeldan.dll and
// QXKeldanHost.exe, which a site with another platform does not have. Prints what it did. Throws Failure.
void RegisterModules(const std::filesystem::path& folder);

// Removes every registration that RegisterModules made. Continues after a failure and throws the first one at the end.
void UnregisterModules(const std::filesystem::path& folder);

// The folder of this program.
std::filesystem::path ProgramFolder();

} // namespace vornactl
