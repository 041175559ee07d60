// Processes that tests start: commands, and this program once more with one of its tests.
//
// The object owns its handles only; a process that still runs goes on after it. One thread uses an object.
#pragma once

#include "common/com/unique_any.h"

#include <string>
#include <utility>
#include <vector>

namespace support {

class ChildProcess {
  public:
    // Variables that the process gets besides those of this process.
    using Environment = std::vector<std::pair<const wchar_t*, std::wstring>>;

    // Starts the command, which inherits the inheritable handles. Throws std::runtime_error if that fails.
    explicit ChildProcess(std::wstring command, const Environment& environment = {});
    // Starts this program with nothing to run but a test that is disabled otherwise.
    static ChildProcess OfTest(const std::wstring& test, const Environment& environment);

    bool Running() const;
    // Waits for the end and returns the exit code.
    DWORD Wait() const;
    void Kill() const;

  private:
    vorna::unique_handle process_;
};

// Ends the platform's host of a data folder, as a crash would; false if none runs.
[[nodiscard]] bool KillHost(const std::wstring& dataFolder);

// Runs QXKeldanHost.exe of the program's folder and returns its exit code.
DWORD RunHost(const std::wstring& option);

} // namespace support
