// Registration of the component and of the reference platform, each by its own entry points.
#pragma once

#include <filesystem>

namespace vornactl {

// Registers what lies in the folder: Vorna.dll, which must be there, and the platform's QXKeldan.dll and
// QXKeldanHost.exe, which a site with a platform of its own does not have. Says what it did. Throws Failure.
void RegisterModules(const std::filesystem::path& folder);

// Ends every registration that RegisterModules made. Goes on after a failure and throws the first one at the end.
void UnregisterModules(const std::filesystem::path& folder);

// The folder of this program.
std::filesystem::path ProgramFolder();

} // namespace vornactl
