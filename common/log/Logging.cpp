#include "common/log/Logging.h"

#include "common/com/scope_exit.h"
#include "common/log/LogConfiguration.h"
#include "common/log/LogFile.h"
#include "common/log/LogLine.h"

#include <objbase.h>
#include <windows.h>

#include <atomic>
#include <cstdarg>
#include <cstring>

namespace vorna {

constinit volatile unsigned char loggingLevel = 0;

namespace {

constexpr DWORD STOP_WAIT = 1000;
constexpr char FALLBACK_PATH[] = "\\qxv-event.log";

// Zero-initialised and without a destructor, so that logging works before the constructors and after the destructors of
// all other static objects, and under the loader lock. Every wait for another thread has a time limit.
struct LoggingState {
    std::atomic<unsigned> mode;
    std::atomic<LONG> users;
    std::atomic<HANDLE> file;
    std::atomic<HANDLE> mutex;
    std::atomic<DWORD> maxKilobytes;
    // The program identifier and "::", with every "%" doubled: it becomes part of a format.
    std::atomic<char> programId[96];

    // Set while a thread is filling the fields above.
    std::atomic<bool> publishing;
    // The number of threads that are using the file handles.
    std::atomic<LONG> writers;
};

constinit LoggingState state;

// Restores the thread's last error at the end of the scope.
auto KeepLastError() {
    return scope_exit([error = GetLastError()] { SetLastError(error); });
}

void StoreProgramId(const char* programId) {
    size_t length = 0;
    auto put = [&](char character) {
        if (length + 1 < std::size(state.programId))
            state.programId[length++].store(character, std::memory_order_relaxed);
    };
    // Truncates the identifier so that a last doubled "%" and the colons still fit.
    for (; *programId && length + 5 < std::size(state.programId); ++programId) {
        put(*programId);
        if (*programId == '%')
            put('%');
    }
    put(':');
    put(':');
    state.programId[length].store('\0', std::memory_order_relaxed);
}

using Head = char[sizeof state.programId];

void LoadProgramId(Head& head) {
    size_t length = 0;
    while (length + 1 < sizeof head && (head[length] = state.programId[length].load(std::memory_order_relaxed)))
        ++length;
    head[length] = '\0';
    if (length == 0)
        std::memcpy(head, "::", 3);
}

// Makes the target the active one; false if another thread was first.
bool Publish(unsigned char level, unsigned mode, LogFile& opened, DWORD kilobytes) {
    if (state.publishing.exchange(true))
        return false;
    const bool first = state.mode == LOG_MODE_OFF;
    if (first) {
        // Null, not INVALID_HANDLE_VALUE, for the modes without a file.
        state.file = opened.file ? opened.file.release() : nullptr;
        state.mutex = opened.mutex.release();
        state.maxKilobytes = kilobytes;
        loggingLevel = level;
        // Stored last: a thread that sees the mode also sees the other fields.
        state.mode = mode;
    }
    state.publishing = false;
    return first;
}

// Counts one user of the active target, stores the new count in users and returns the level. 0 if the active mode
// differs.
unsigned Join(unsigned mode, LONG& users) {
    if (state.mode != mode)
        return 0;
    users = ++state.users;
    return loggingLevel;
}

unsigned OpenTarget(unsigned char level, unsigned mode, const char* path, DWORD kilobytes, LONG& users) {
    if (state.mode != LOG_MODE_OFF)
        return Join(mode, users);
    if (mode == LOG_MODE_OFF)
        return 0;
    LogFile opened;
    if (IsFileMode(mode) && !opened.Open(path))
        return 0;
    if (!Publish(level, mode, opened, kilobytes)) {
        // Another thread is about to set the mode. The wait is limited, because that thread may be terminated at
        // process exit.
        for (int tries = 0; tries < 10000 && state.mode == LOG_MODE_OFF; ++tries)
            SwitchToThread();
    }
    return Join(mode, users);
}

void SendToConsole(const char* line, DWORD size) {
    HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
    DWORD written = 0;
    // Without a console, the debugger output is the best alternative.
    if (!output || output == INVALID_HANDLE_VALUE || !WriteFile(output, line, size, &written, nullptr))
        OutputDebugStringA(line);
}

void SendToFile(unsigned mode, const char* line, DWORD size) {
    ++state.writers;
    const scope_exit leave([] { --state.writers; });
    HANDLE file = state.file;
    HANDLE mutex = state.mutex;
    if (!file || !mutex)
        return;
    // Replaces only the mode that failed, not one that another thread has set meanwhile.
    if (AppendToLogFile(file, mutex, line, size) == LogAppend::Failed)
        state.mode.compare_exchange_strong(mode, LOG_MODE_DEBUGGER);
}

// Writes a line of level 0 while logging is off. The file is not stored in the state, so that a concurrent start of
// logging does not use it.
void SendToFallbackFile(const char* line, DWORD size) {
    LogFile fallback;
    if (fallback.Open(FALLBACK_PATH))
        AppendToLogFile(fallback.file.get(), fallback.mutex.get(), line, size);
}

void WriteMessage(unsigned level, const char* format, va_list arguments) {
    const auto keep = KeepLastError();
    const unsigned mode = state.mode;
    if (mode == LOG_MODE_OFF && level != 0)
        return;
    Head head;
    LoadProgramId(head);
    char line[LOG_LINE_SIZE];
    const bool dated = mode == LOG_MODE_OFF || IsFileMode(mode);
    const DWORD size = static_cast<DWORD>(FormatLogLine(line, head, dated, level, format, arguments));
    switch (mode) {
    case LOG_MODE_OFF:
        SendToFallbackFile(line, size);
        break;
    case LOG_MODE_CONSOLE:
        SendToConsole(line, size);
        break;
    case LOG_MODE_FILE:
    case LOG_MODE_LIMITED_FILE:
        SendToFile(mode, line, size);
        break;
    default:
        OutputDebugStringA(line);
        break;
    }
}

void TrimFile(HANDLE file) {
    LogFileTrim trim(file, state.maxKilobytes);
    if (!trim)
        return;
    // Messages of other threads go to the debugger while the file is being rewritten.
    ++state.users;
    state.mode = LOG_MODE_DEBUGGER;
    trim.Run();
    state.mode = LOG_MODE_FILE;
    --state.users;
}

// Closes handles that are no longer reachable through the state.
void CloseFile(HANDLE file, HANDLE mutex) {
    LogFile closing{unique_file(file), unique_handle(mutex)};
    const ULONGLONG end = GetTickCount64() + STOP_WAIT;
    while (state.writers != 0 && GetTickCount64() < end)
        Sleep(1);
    if (state.writers != 0) {
        // A stuck writer may still use the handles. Leaking them is safer than letting their values be reused for other
        // objects.
        closing.file.release();
        closing.mutex.release();
    }
}

bool ReleaseLastUser() {
    for (LONG users = state.users; users > 0;)
        if (state.users.compare_exchange_weak(users, users - 1))
            return users == 1;
    return false;
}

} // namespace

unsigned StartLogging(const char* programId) {
    const auto keep = KeepLastError();
    if (!programId)
        programId = "";
    LogConfiguration configuration;
    if (!configuration.Read(programId))
        return 0;
    LONG users = 0;
    OpenTarget(configuration.level, configuration.mode, configuration.path, configuration.kilobytes, users);
    StoreProgramId(programId);
    if (users == 1 && LogEnabled(LOG_TRACE))
        LogMessage(LOG_TRACE, " ---Start Logging---");
    return loggingLevel;
}

void LogMessage(unsigned level, const char* format, ...) {
    if (!LogEnabled(level))
        return;
    va_list arguments;
    va_start(arguments, format);
    WriteMessage(level, format, arguments);
    va_end(arguments);
}

void StopLogging() {
    const auto keep = KeepLastError();
    if (!ReleaseLastUser())
        return;
    if (HANDLE file = state.file) {
        HANDLE mutex = state.mutex;
        const DWORD wait = WaitForSingleObject(mutex, STOP_WAIT);
        if (wait == WAIT_OBJECT_0 || wait == WAIT_ABANDONED) {
            TrimFile(file);
            ReleaseMutex(mutex);
        }
    }
    HANDLE file = state.file.exchange(nullptr);
    HANDLE mutex = state.mutex.exchange(nullptr);
    loggingLevel = 0;
    state.mode = LOG_MODE_OFF;
    if (file)
        CloseFile(file, mutex);
}

ScopeTrace::ScopeTrace(Scope scope) : name_(scope.name) {
    guid_[0] = L'\0';
    if (!LogEnabled(LOG_SCOPE))
        return;
    MakeGuid();
    LogMessage(LOG_SCOPE, "ENTER %s on line %d in file %s @%S@", scope.name, scope.line, scope.file, guid_);
}

ScopeTrace::~ScopeTrace() {
    if (!LogEnabled(LOG_SCOPE))
        return;
    // Logging may have been enabled inside the scope.
    if (!guid_[0])
        MakeGuid();
    LogMessage(LOG_SCOPE, "EXIT: %s @%S@", name_, guid_);
}

void ScopeTrace::MakeGuid() {
    const auto keep = KeepLastError();
    GUID guid{};
    if (FAILED(CoCreateGuid(&guid)) || !StringFromGUID2(guid, guid_, static_cast<int>(std::size(guid_))))
        guid_[0] = L'\0';
}

} // namespace vorna
