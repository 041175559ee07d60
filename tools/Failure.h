// What ends a command early, and the exit codes of the program.
#pragma once

#include <windows.h>

#include <string>
#include <utility>

namespace vornactl {

enum ExitCode : int { EXIT_DONE = 0, EXIT_FAILED = 1, EXIT_USAGE = 2 };

// The component, the platform or the operating system refused something.
struct Failure {
    HRESULT code;
    // What was tried, with the value that it was tried with.
    std::wstring doing;
    // The text that came with the code; may be empty.
    std::wstring text;

    Failure(HRESULT result, std::wstring what, std::wstring said = {})
        : code(result), doing(std::move(what)), text(std::move(said)) {}
};

// The words on the command line are not right. message names the word.
struct UsageError {
    std::wstring message;
};

} // namespace vornactl
