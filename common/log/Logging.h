// One diagnostic log for the whole process, set up in the registry: a shared file, the debugger output or the console.
//
// Any thread of any process may log; a named mutex keeps the lines of one file whole. Nothing here fails towards the
// caller, throws, allocates on the message path or changes the thread's last error.
#pragma once

namespace vorna {

// What a message is for. A configured level shows itself and everything below it.
enum LogLevel : unsigned {
    LOG_ERROR = 1,
    LOG_WARNING = 2,
    LOG_NOTICE = 3,
    LOG_TRACE = 4,
    LOG_SCOPE = 5,
    LOG_BUFFER = 6,
    LOG_VERBOSE = 8,
};

// The configured level; 0 when logging is off. Written only by the functions below.
extern volatile unsigned char loggingLevel;

inline bool LogEnabled(unsigned level) {
    return level <= loggingLevel;
}

// Reads the configuration and opens the target; counts one user. Later calls only count. Returns the configured level.
unsigned StartLogging(const char* programId);

// Writes one line. format is msvcrt's narrow printf format; %S takes a wide string. Long strings are cut to the line.
void LogMessage(unsigned level, const char* format, ...);

// Gives back one user; the last one trims and closes the file and switches logging off.
void StopLogging();

// The qualified name of an operation, and the place in the sources where that name is written.
struct Scope {
    // operation: a literal.
    consteval Scope(const char* operation, int at = __builtin_LINE(), const char* path = __builtin_FILE())
        : name(operation), line(at), file(path) {
        for (; *path; ++path)
            if (*path == '/' || *path == '\\')
                file = path + 1;
    }

    const char* name;
    int line;
    // Without its folder.
    const char* file;
};

// An entry line at once and an exit line when the scope is left, tied together by a fresh GUID; level 5.
class ScopeTrace {
  public:
    explicit ScopeTrace(Scope scope);
    ~ScopeTrace();
    ScopeTrace(const ScopeTrace&) = delete;
    ScopeTrace& operator=(const ScopeTrace&) = delete;

  private:
    void MakeGuid();

    const char* name_;
    wchar_t guid_[256];
};

} // namespace vorna

// Formats nothing, and evaluates no argument, when the level is not enabled.
#define VORNA_LOG(level, ...)                                                                                          \
    do {                                                                                                               \
        if (::vorna::LogEnabled(level))                                                                                \
            ::vorna::LogMessage(level, __VA_ARGS__);                                                                   \
    } while (false)
