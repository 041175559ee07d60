// What the program can do.
#pragma once

#include "tools/CommandLine.h"
#include "tools/Failure.h"

#include <span>
#include <string>

namespace vornactl {

// Runs one command line, without the program's name. Throws failure and usage_error.
exit_code Run(std::span<const std::wstring> arguments);

} // namespace vornactl
