// A log file that several processes append to, and the named mutex that serialises their writes.
#pragma once

#include "common/com/unique_any.h"

#include <windows.h>

namespace vorna {

struct LogFile {
    unique_file file;
    unique_handle mutex;

    // Opens or creates the file and its mutex, both with access for everyone. On failure both are empty.
    bool Open(const char* path);
};

// The name of the file's mutex; it does not depend on the letter case of the path.
using LogMutexName = char[MAX_PATH];
void MakeLogMutexName(LogMutexName& name, const char* path);

enum class LogAppend {
    Written,
    // The mutex was not available in time.
    Dropped,
    // The line could not be written.
    Failed,
};

// Appends the line to the file; waits at most 500 ms for the mutex.
LogAppend AppendToLogFile(HANDLE file, HANDLE mutex, const char* line, DWORD size);

// Trims a file to its last lines. The caller holds the mutex.
class LogFileTrim {
  public:
    // Locks the file if it is longer than the limit. 0 kilobytes, or 1024 and more, mean no limit.
    LogFileTrim(HANDLE file, DWORD kilobytes);
    // Unlocks the file.
    ~LogFileTrim();
    LogFileTrim(const LogFileTrim&) = delete;
    LogFileTrim& operator=(const LogFileTrim&) = delete;

    // Whether the file is longer than the limit and locked.
    explicit operator bool() const { return size_ != 0; }
    // Removes everything before the first line that begins within the limit at the end of the file.
    void Run();

  private:
    HANDLE file_;
    LONGLONG limit_;
    LONGLONG size_ = 0;
};

} // namespace vorna
