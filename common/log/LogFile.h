// A log file that several processes append to, and the named mutex that keeps their lines whole.
#pragma once

#include "common/com/unique_any.h"

#include <windows.h>

namespace vorna {

struct LogFile {
    unique_file file;
    unique_handle mutex;

    // Opens or creates the file, open to everyone, and its mutex. On failure both are empty.
    bool Open(const char* path);
};

// The name of the mutex of a file, the same for every spelling of the path in other letter cases.
using LogMutexName = char[MAX_PATH];
void MakeLogMutexName(LogMutexName& name, const char* path);

enum class LogAppend {
    Written,
    // The mutex could not be had in time.
    Dropped,
    // The file did not take the line.
    Failed,
};

// Writes at the end of the file; waits at most 500 ms for the mutex.
LogAppend AppendToLogFile(HANDLE file, HANDLE mutex, const char* line, DWORD size);

// One cut of a file down to its last lines. The caller holds the mutex.
class LogFileTrim {
  public:
    // Locks the file where it is longer than the limit; limits of 0 and of 1024 kilobytes and more mean none.
    LogFileTrim(HANDLE file, DWORD kilobytes);
    ~LogFileTrim();
    LogFileTrim(const LogFileTrim&) = delete;
    LogFileTrim& operator=(const LogFileTrim&) = delete;

    // Whether there is something to cut.
    explicit operator bool() const { return size_ != 0; }
    // Keeps the last kilobytes of the file, from the first line that begins in them. Gives the lock back.
    void Run();

  private:
    void Unlock();

    HANDLE file_;
    LONGLONG limit_;
    LONGLONG size_ = 0;
};

} // namespace vorna
