#include "platform/archive/ArchiveFile.h"

#include "common/com/results.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

namespace keldan {

namespace {

constexpr LONGLONG HEADER_SIZE = ArchiveHeader::SIZE;
constexpr LONGLONG PAGE_SIZE = 4096;

// The cipher leaves the first 24 bytes of the first page open and unproved: a salt, which a raw key does not use, and
// the database's page format, which is always the same. So they are known, and any other value is damage.
// Page size 4096, rollback journal twice, 64 bytes of each page for the proof, and three fixed fractions.
constexpr std::array<BYTE, 24> OPEN_BYTES{0, 0, 0, 0, 0,    0, 0, 0, 0,  0,  0,  0,
                                          0, 0, 0, 0, 0x10, 0, 1, 1, 64, 64, 32, 32};
constexpr size_t SALT_SIZE = 16;

// Far behind the end of any archive: a locked range must not hinder readers of the data.
OVERLAPPED LockPlace() {
    OVERLAPPED place{};
    place.OffsetHigh = 0x7FFFFFFF;
    return place;
}

OVERLAPPED Place(LONGLONG offset) {
    OVERLAPPED place{};
    place.Offset = static_cast<DWORD>(offset);
    place.OffsetHigh = static_cast<DWORD>(offset >> 32);
    return place;
}

bool Full(DWORD error) {
    return error == ERROR_DISK_FULL || error == ERROR_HANDLE_DISK_FULL;
}

} // namespace

ArchiveFile::~ArchiveFile() {
    if (created_ && !published_) {
        FILE_DISPOSITION_INFO disposition{TRUE};
        SetFileInformationByHandle(file_.get(), FileDispositionInfo, &disposition, sizeof disposition);
    }
}

HRESULT ArchiveFile::Open(Access access, Deadline& deadline) {
    access_ = access;
    for (;;) {
        HRESULT result = OpenOnce();
        if (result == HRESULT_FROM_WIN32(ERROR_SHARING_VIOLATION)) {
            if (deadline.Pause())
                continue;
            return HRESULT_FROM_WIN32(ERROR_LOCK_VIOLATION);
        }
        if (SUCCEEDED(result))
            result = Lock(deadline);
        if (FAILED(result))
            return result;
        // Nobody makes or removes a journal while this lock is held, so what is found here stays true.
        journalExists_ = GetFileAttributesW(JournalPath().c_str()) != INVALID_FILE_ATTRIBUTES;
        if (!journalExists_ || access_ == Access::Write)
            return OpenHeader();
        access_ = Access::Write;
    }
}

HRESULT ArchiveFile::OpenOnce() {
    DWORD rights = access_ == Access::Write ? GENERIC_READ | GENERIC_WRITE : GENERIC_READ;
    file_.reset(CreateFileW(path_.c_str(), rights, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                            FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file_)
        return vorna::result_from_last_error();
    // Not every file system holds a privileged account to the attribute.
    FILE_BASIC_INFO info;
    if (access_ == Access::Write && GetFileInformationByHandleEx(file_.get(), FileBasicInfo, &info, sizeof info) &&
        (info.FileAttributes & FILE_ATTRIBUTE_READONLY))
        return HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED);
    return S_OK;
}

HRESULT ArchiveFile::Lock(Deadline& deadline) {
    DWORD flags = LOCKFILE_FAIL_IMMEDIATELY | (access_ == Access::Write ? LOCKFILE_EXCLUSIVE_LOCK : 0);
    for (;;) {
        OVERLAPPED place = LockPlace();
        if (LockFileEx(file_.get(), flags, 0, 1, 0, &place))
            return S_OK;
        DWORD error = GetLastError();
        if (error != ERROR_LOCK_VIOLATION && error != ERROR_IO_PENDING)
            return vorna::result_from_win32(error);
        if (!deadline.Pause())
            return HRESULT_FROM_WIN32(ERROR_LOCK_VIOLATION);
    }
}

HRESULT ArchiveFile::OpenHeader() {
    ArchiveHeader::Bytes bytes;
    int code = Read(file_.get(), bytes.data(), static_cast<int>(bytes.size()), 0);
    if (code == SQLITE_IOERR_SHORT_READ)
        return HRESULT_FROM_WIN32(ERROR_FILE_CORRUPT);
    if (code != SQLITE_OK)
        return vorna::result_from_win32(error_);
    return ArchiveHeader::Open(ArchiveHeader::NameOf(path_), bytes, keys_);
}

HRESULT ArchiveFile::Create() {
    access_ = Access::Write;
    std::wstring path = path_ + L"-new";
    // Alone from here to the name it gets: what is left of a process that was ended is overwritten.
    file_.reset(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE | DELETE, 0, nullptr, CREATE_ALWAYS,
                            FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file_)
        return vorna::result_from_last_error();
    created_ = true;
    ArchiveHeader::Bytes bytes;
    if (HRESULT result = ArchiveHeader::Make(ArchiveHeader::NameOf(path_), bytes, keys_); FAILED(result))
        return result;
    int code = Write(file_.get(), bytes.data(), static_cast<int>(bytes.size()), 0);
    return code == SQLITE_OK ? S_OK : vorna::result_from_win32(error_);
}

HRESULT ArchiveFile::Publish() {
    if (Flush(file_.get()) != SQLITE_OK)
        return vorna::result_from_win32(error_);
    size_t bytes = path_.size() * sizeof(wchar_t);
    std::vector<BYTE> buffer(sizeof(FILE_RENAME_INFO) + bytes);
    auto* rename = reinterpret_cast<FILE_RENAME_INFO*>(buffer.data());
    rename->ReplaceIfExists = FALSE;
    rename->FileNameLength = static_cast<DWORD>(bytes);
    std::memcpy(rename->FileName, path_.data(), bytes);
    if (!SetFileInformationByHandle(file_.get(), FileRenameInfo, rename, static_cast<DWORD>(buffer.size())))
        return vorna::result_from_last_error();
    published_ = true;
    return S_OK;
}

LONGLONG ArchiveFile::ContentSize() const {
    LARGE_INTEGER size;
    return GetFileSizeEx(file_.get(), &size) ? size.QuadPart - HEADER_SIZE : -1;
}

int ArchiveFile::ReadAt(void* buffer, int count, LONGLONG offset) {
    int code = Read(file_.get(), buffer, count, offset + HEADER_SIZE);
    // While a journal exists the file may be in the middle of a change.
    if (created_ || journalExists_)
        return code;
    if (code == SQLITE_IOERR_SHORT_READ)
        ReportDamage();
    if (offset == 0 && std::memcmp(buffer, OPEN_BYTES.data(), std::min<size_t>(OPEN_BYTES.size(), count)) != 0)
        ReportDamage();
    return damaged_ ? SQLITE_IOERR_CORRUPTFS : code;
}

int ArchiveFile::WriteAt(const void* buffer, int count, LONGLONG offset) {
    if (offset != 0 || count != PAGE_SIZE)
        return Write(file_.get(), buffer, count, offset + HEADER_SIZE);
    std::array<BYTE, PAGE_SIZE> page;
    std::memcpy(page.data(), buffer, page.size());
    std::fill_n(page.begin(), SALT_SIZE, BYTE{0});
    return Write(file_.get(), page.data(), count, HEADER_SIZE);
}

int ArchiveFile::Truncate(LONGLONG size) {
    return SetSize(file_.get(), size + HEADER_SIZE);
}

int ArchiveFile::Sync() {
    return created_ ? SQLITE_OK : Flush(file_.get());
}

int ArchiveFile::FileSize(LONGLONG& size) {
    size = ContentSize();
    if (size < 0)
        return Fail(SQLITE_IOERR_FSTAT, GetLastError());
    if (!created_ && !journalExists_ && (size == 0 || size % PAGE_SIZE != 0)) {
        ReportDamage();
        return SQLITE_IOERR_CORRUPTFS;
    }
    return SQLITE_OK;
}

int ArchiveFile::OpenJournal(bool write, bool create) {
    journal_.reset(CreateFileW(JournalPath().c_str(), write ? GENERIC_READ | GENERIC_WRITE : GENERIC_READ,
                               FILE_SHARE_READ, nullptr, create ? OPEN_ALWAYS : OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL,
                               nullptr));
    if (!journal_)
        return Fail(SQLITE_CANTOPEN, GetLastError());
    journalExists_ = true;
    return SQLITE_OK;
}

int ArchiveFile::ReadJournal(void* buffer, int count, LONGLONG offset) {
    return Read(journal_.get(), buffer, count, offset);
}

int ArchiveFile::WriteJournal(const void* buffer, int count, LONGLONG offset) {
    return Write(journal_.get(), buffer, count, offset);
}

int ArchiveFile::TruncateJournal(LONGLONG size) {
    return SetSize(journal_.get(), size);
}

int ArchiveFile::SyncJournal() {
    return Flush(journal_.get());
}

int ArchiveFile::JournalSize(LONGLONG& size) {
    LARGE_INTEGER found;
    if (!GetFileSizeEx(journal_.get(), &found))
        return Fail(SQLITE_IOERR_FSTAT, GetLastError());
    size = found.QuadPart;
    return SQLITE_OK;
}

int ArchiveFile::DeleteJournal() {
    // A virus scanner or an indexer may hold a file for a moment after it was made.
    Deadline deadline(1000);
    for (;;) {
        if (DeleteFileW(JournalPath().c_str()))
            break;
        DWORD error = GetLastError();
        if (error == ERROR_FILE_NOT_FOUND)
            break;
        bool passing = error == ERROR_SHARING_VIOLATION || error == ERROR_ACCESS_DENIED;
        if (!passing || !deadline.Pause())
            return Fail(SQLITE_IOERR_DELETE, error);
    }
    journalExists_ = false;
    return SQLITE_OK;
}

int ArchiveFile::Fail(int code, DWORD error) {
    if (error_ == ERROR_SUCCESS)
        error_ = error;
    return code;
}

int ArchiveFile::Read(HANDLE file, void* buffer, int count, LONGLONG offset) {
    OVERLAPPED place = Place(offset);
    DWORD done = 0;
    if (!ReadFile(file, buffer, static_cast<DWORD>(count), &done, &place)) {
        DWORD error = GetLastError();
        if (error != ERROR_HANDLE_EOF)
            return Fail(SQLITE_IOERR_READ, error);
        done = 0;
    }
    if (done == static_cast<DWORD>(count))
        return SQLITE_OK;
    std::memset(static_cast<BYTE*>(buffer) + done, 0, static_cast<DWORD>(count) - done);
    return SQLITE_IOERR_SHORT_READ;
}

int ArchiveFile::Write(HANDLE file, const void* buffer, int count, LONGLONG offset) {
    OVERLAPPED place = Place(offset);
    DWORD done = 0;
    if (!WriteFile(file, buffer, static_cast<DWORD>(count), &done, &place)) {
        DWORD error = GetLastError();
        return Fail(Full(error) ? SQLITE_FULL : SQLITE_IOERR_WRITE, error);
    }
    return done == static_cast<DWORD>(count) ? SQLITE_OK : Fail(SQLITE_FULL, ERROR_DISK_FULL);
}

int ArchiveFile::SetSize(HANDLE file, LONGLONG size) {
    FILE_END_OF_FILE_INFO end;
    end.EndOfFile.QuadPart = size;
    if (SetFileInformationByHandle(file, FileEndOfFileInfo, &end, sizeof end))
        return SQLITE_OK;
    DWORD error = GetLastError();
    return Fail(Full(error) ? SQLITE_FULL : SQLITE_IOERR_TRUNCATE, error);
}

int ArchiveFile::Flush(HANDLE file) {
    return FlushFileBuffers(file) ? SQLITE_OK : Fail(SQLITE_IOERR_FSYNC, GetLastError());
}

} // namespace keldan
