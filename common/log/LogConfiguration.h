// The logging configuration in the registry.
#pragma once

#include <windows.h>

namespace vorna {

// The target of the log lines.
enum LogMode : unsigned {
    LOG_MODE_OFF = 0,
    LOG_MODE_CONSOLE = 1,
    LOG_MODE_DEBUGGER = 2,
    LOG_MODE_FILE = 4,
    LOG_MODE_LIMITED_FILE = 8,
};

inline bool IsFileMode(unsigned mode) {
    return mode == LOG_MODE_FILE || mode == LOG_MODE_LIMITED_FILE;
}

struct LogConfiguration {
    // The longest configured value, without its terminating zero.
    static constexpr DWORD MAX_VALUE = 260;

    unsigned mode = LOG_MODE_OFF;
    unsigned char level = 0;
    DWORD kilobytes = 0;
    char path[MAX_VALUE + 1] = {};

    // Parses "console,<level>", "debug,<level>", "file,<path>,<level>" or "file,<path>,<kilobytes>,<level>". Anything
    // else leaves the mode off.
    void Parse(const char* value);

    // Reads and parses the value for the program. False if there is no value or it is not a string.
    bool Read(const char* programId);
};

} // namespace vorna
