// What ends a command early, and the exit codes of the program.
#pragma once

#include "common/com/result_error.h"

#include <string>
#include <utility>

namespace vornactl {

enum class ExitCode { Done = 0, Failed = 1, Usage = 2 };

// The component, the platform or the operating system refused something. The result need not be a failure: the
// component answers S_FALSE too.
struct Failure : vorna::result_error {
    // What was tried, with the value that it was tried with: "reading a.xml".
    std::wstring action;
    // The text that came with the result; may be empty.
    std::wstring text;

    Failure(HRESULT result, std::wstring tried, std::wstring said = {})
        : result_error(result), action(std::move(tried)), text(std::move(said)) {}
};

// The command line is not valid. message names the wrong word.
struct UsageError {
    std::wstring message;
};

} // namespace vornactl
