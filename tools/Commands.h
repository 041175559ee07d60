// The commands of the program.
#pragma once

#include "tools/CommandLine.h"
#include "tools/Failure.h"

#include <span>
#include <string>

namespace vornactl {

// Runs one command line, without the program's name. Throws Failure and UsageError.
ExitCode Run(std::span<const std::wstring> arguments);

} // namespace vornactl
