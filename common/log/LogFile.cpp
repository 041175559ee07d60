#include "common/log/LogFile.h"

#include "common/com/everyone_descriptor.h"

#include <winternl.h>

#include <cstring>

// Not declared by the user-mode headers.
extern "C" NTSTATUS NTAPI NtWriteFile(HANDLE file, HANDLE event, PIO_APC_ROUTINE routine, void* context,
                                      IO_STATUS_BLOCK* status, void* data, ULONG size, LARGE_INTEGER* offset,
                                      ULONG* key);

namespace vorna {

namespace {

constexpr DWORD APPEND_WAIT = 500;
constexpr char MUTEX_PREFIX[] = "QX_TBR_LOGGING_MUTEX-";

char MutexCharacter(char character) {
    if (character >= 'A' && character <= 'Z')
        return static_cast<char>(character - 'A' + 'a');
    const bool kept = (character >= 'a' && character <= 'z') || (character >= '0' && character <= '9') ||
                      (character != '\0' && std::strchr("_-#.~()[]{}", character));
    return kept ? character : '_';
}

unique_handle OpenLogMutex(const char* name, SECURITY_ATTRIBUTES* attributes) {
    unique_handle mutex(OpenMutexA(0, FALSE, name));
    // The mutex was opened without access rights, so it may be impossible to wait for it.
    if (mutex) {
        const DWORD wait = WaitForSingleObject(mutex.get(), 0);
        if (wait == WAIT_OBJECT_0 || wait == WAIT_ABANDONED)
            ReleaseMutex(mutex.get());
        if (wait != WAIT_FAILED)
            return mutex;
    }
    return unique_handle(CreateMutexA(attributes, FALSE, name));
}

LONGLONG Move(HANDLE file, LONGLONG distance, DWORD from) {
    LARGE_INTEGER offset;
    offset.QuadPart = distance;
    LARGE_INTEGER position{};
    return SetFilePointerEx(file, offset, &position, from) ? position.QuadPart : -1;
}

// Appends in one system call: SetFilePointerEx to the end alone costs more than the write.
bool WriteAtEnd(HANDLE file, const char* line, DWORD size) {
    LARGE_INTEGER end;
    // FILE_WRITE_TO_END_OF_FILE
    end.QuadPart = -1;
    IO_STATUS_BLOCK status{};
    const NTSTATUS result =
        NtWriteFile(file, nullptr, nullptr, nullptr, &status, const_cast<char*>(line), size, &end, nullptr);
    return NT_SUCCESS(result) && status.Information == size;
}

} // namespace

void MakeLogMutexName(LogMutexName& name, const char* path) {
    // A long path is truncated. Files whose paths begin alike then share a mutex, which costs time but loses no lines.
    size_t length = 0;
    for (const char* part : {MUTEX_PREFIX, path})
        for (; *part && length + 1 < sizeof name; ++part)
            name[length++] = MutexCharacter(*part);
    name[length] = '\0';
}

bool LogFile::Open(const char* path) {
    // Inheritable and with access for everyone: services and users of all sessions write to the same log.
    everyone_descriptor everyone;
    if (!everyone.complete())
        OutputDebugStringA("Logging - warning: unable to set security on log file.\n");
    SECURITY_ATTRIBUTES attributes{sizeof attributes, everyone.get(), TRUE};
    file.reset(CreateFileA(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &attributes,
                           OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file)
        return false;
    LogMutexName name;
    MakeLogMutexName(name, path);
    Move(file.get(), 0, FILE_END);
    mutex = OpenLogMutex(name, &attributes);
    if (!mutex) {
        OutputDebugStringA("QX Logging - unable to create mutex!!! \t-->");
        OutputDebugStringA(name);
        OutputDebugStringA("\n");
        file.reset();
        return false;
    }
    return true;
}

LogAppend AppendToLogFile(HANDLE file, HANDLE mutex, const char* line, DWORD size) {
    const DWORD wait = WaitForSingleObject(mutex, APPEND_WAIT);
    if (wait != WAIT_OBJECT_0 && wait != WAIT_ABANDONED)
        return LogAppend::Dropped;
    const bool whole = WriteAtEnd(file, line, size);
    ReleaseMutex(mutex);
    return whole ? LogAppend::Written : LogAppend::Failed;
}

LogFileTrim::LogFileTrim(HANDLE file, DWORD kilobytes) : file_(file), limit_(LONGLONG{kilobytes} * 1024) {
    LARGE_INTEGER size{};
    if (kilobytes == 0 || kilobytes >= 1024 || !GetFileSizeEx(file, &size) || size.QuadPart <= limit_)
        return;
    if (LockFile(file, 0, 0, size.LowPart, static_cast<DWORD>(size.HighPart)))
        size_ = size.QuadPart;
}

LogFileTrim::~LogFileTrim() {
    if (size_ == 0)
        return;
    LARGE_INTEGER size;
    size.QuadPart = size_;
    UnlockFile(file_, 0, 0, size.LowPart, static_cast<DWORD>(size.HighPart));
}

void LogFileTrim::Run() {
    LONGLONG from = size_ - limit_;
    LONGLONG to = 0;
    Move(file_, from, FILE_BEGIN);
    char byte = '\0';
    DWORD count = 0;
    while (byte != '\n' && ReadFile(file_, &byte, 1, &count, nullptr) && count == 1)
        ++from;

    bool copied = true;
    while (copied) {
        char chunk[260];
        Move(file_, from, FILE_BEGIN);
        copied = ReadFile(file_, chunk, sizeof chunk, &count, nullptr);
        if (!copied || count == 0)
            break;
        from += count;
        Move(file_, to, FILE_BEGIN);
        DWORD written = 0;
        copied = WriteFile(file_, chunk, count, &written, nullptr) && written == count;
        to += written;
    }
    // After an error the end of the file holds lines that have not been copied.
    if (copied) {
        Move(file_, to, FILE_BEGIN);
        SetEndOfFile(file_);
    }
}

} // namespace vorna
