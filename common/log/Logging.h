// One diagnostic log for the whole process, configured in the registry: a shared file, the debugger output or the
// console.
//
// Any thread of any process may log; a named mutex serialises the writes to one file. The functions do not report
// errors, throw or change the thread's last error, and writing a message allocates no memory.
#pragma once

namespace vorna {

// The configured level enables messages of this level and of all lower ones.
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

// Reads the configuration, opens the target and counts one user. While logging is on, a call with the same configured
// mode only counts one user and replaces the program identifier. Returns the active level; 0 if there is no
// configuration.
unsigned StartLogging(const char* programId);

// Writes one line. format is msvcrt's narrow printf format; %S takes a wide string. Long strings are truncated to fit
// into the line.
void LogMessage(unsigned level, const char* format, ...);

// Removes one user; for the last one it trims and closes the file and switches logging off.
void StopLogging();

// The qualified name of an operation and its location in the sources.
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
    // The file name without its folder.
    const char* file;
};

// Logs an entry line now and an exit line at the end of the scope, both with the same new GUID; level 5.
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

// Evaluates no argument if the level is not enabled.
#define VORNA_LOG(level, ...)                                                                                          \
    do {                                                                                                               \
        if (::vorna::LogEnabled(level))                                                                                \
            ::vorna::LogMessage(level, __VA_ARGS__);                                                                   \
    } while (false)
