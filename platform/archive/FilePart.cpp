#include "platform/archive/FilePart.h"

#include <sqlite3.h>

#include <cstring>

namespace keldan {

namespace {

OVERLAPPED Place(LONGLONG offset) {
    OVERLAPPED place{};
    place.Offset = static_cast<DWORD>(offset);
    place.OffsetHigh = static_cast<DWORD>(offset >> 32);
    return place;
}

bool IsDiskFull(DWORD error) {
    return error == ERROR_DISK_FULL || error == ERROR_HANDLE_DISK_FULL;
}

} // namespace

int FilePart::Fail(int code, DWORD error) {
    if (error_ == ERROR_SUCCESS)
        error_ = error;
    return code;
}

int FilePart::Read(void* buffer, int count, LONGLONG offset) {
    OVERLAPPED place = Place(begin_ + offset);
    DWORD done = 0;
    if (!ReadFile(file_.get(), buffer, static_cast<DWORD>(count), &done, &place)) {
        const DWORD error = GetLastError();
        if (error != ERROR_HANDLE_EOF)
            return Fail(SQLITE_IOERR_READ, error);
        done = 0;
    }
    if (done == static_cast<DWORD>(count))
        return SQLITE_OK;
    std::memset(static_cast<BYTE*>(buffer) + done, 0, static_cast<DWORD>(count) - done);
    return SQLITE_IOERR_SHORT_READ;
}

int FilePart::Write(const void* buffer, int count, LONGLONG offset) {
    OVERLAPPED place = Place(begin_ + offset);
    DWORD done = 0;
    if (!WriteFile(file_.get(), buffer, static_cast<DWORD>(count), &done, &place)) {
        const DWORD error = GetLastError();
        return Fail(IsDiskFull(error) ? SQLITE_FULL : SQLITE_IOERR_WRITE, error);
    }
    return done == static_cast<DWORD>(count) ? SQLITE_OK : Fail(SQLITE_FULL, ERROR_DISK_FULL);
}

int FilePart::Truncate(LONGLONG size) {
    FILE_END_OF_FILE_INFO end;
    end.EndOfFile.QuadPart = begin_ + size;
    if (SetFileInformationByHandle(file_.get(), FileEndOfFileInfo, &end, sizeof end))
        return SQLITE_OK;
    const DWORD error = GetLastError();
    return Fail(IsDiskFull(error) ? SQLITE_FULL : SQLITE_IOERR_TRUNCATE, error);
}

int FilePart::Sync() {
    return FlushFileBuffers(file_.get()) ? SQLITE_OK : Fail(SQLITE_IOERR_FSYNC, GetLastError());
}

int FilePart::Size(LONGLONG& size) {
    LARGE_INTEGER whole;
    if (!GetFileSizeEx(file_.get(), &whole))
        return Fail(SQLITE_IOERR_FSTAT, GetLastError());
    size = whole.QuadPart - begin_;
    return SQLITE_OK;
}

} // namespace keldan
