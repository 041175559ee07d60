#include "platform/archive/ArchiveFile.h"

#include "common/com/results.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

namespace keldan {

namespace {

// The offset of the header, relative to the content.
constexpr LONGLONG HEADER = -static_cast<LONGLONG>(ArchiveHeader::SIZE);

// The cipher neither encrypts nor authenticates the first 24 bytes of the first page: a salt, which a raw key does not
// use, and the format of the database, which is always the same. Any other value is damage.
// Page size 4096, a rollback journal as the version for writing and for reading, 64 bytes of each page for its
// authentication, and three fixed fractions.
constexpr std::array<BYTE, 24> OPEN_BYTES{0, 0, 0, 0, 0,    0, 0, 0, 0,  0,  0,  0,
                                          0, 0, 0, 0, 0x10, 0, 1, 1, 64, 64, 32, 32};
constexpr size_t SALT_SIZE = 16;

constexpr std::wstring_view NEW_SUFFIX = L"-new";
constexpr std::wstring_view JOURNAL_SUFFIX = L"-journal";

bool EndsWith(std::wstring_view path, std::wstring_view suffix) {
    if (path.size() < suffix.size())
        return false;
    const auto length = static_cast<int>(suffix.size());
    return CompareStringOrdinal(path.data() + path.size() - suffix.size(), length, suffix.data(), length, TRUE) ==
           CSTR_EQUAL;
}

// Far behind the end of any archive, because a locked range cannot be read by others.
OVERLAPPED LockPlace() {
    OVERLAPPED place{};
    place.OffsetHigh = 0x7FFFFFFF;
    return place;
}

} // namespace

bool ArchiveFile::IsReserved(std::wstring_view path) {
    return EndsWith(path, NEW_SUFFIX) || EndsWith(path, JOURNAL_SUFFIX);
}

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
        // No other process creates or deletes a journal while this lock is held.
        journalExists_ = GetFileAttributesW(JournalPath().c_str()) != INVALID_FILE_ATTRIBUTES;
        if (!journalExists_ || access_ == Access::Write)
            return OpenHeader();
        access_ = Access::Write;
    }
}

HRESULT ArchiveFile::OpenOnce() {
    DWORD rights = access_ == Access::Write ? GENERIC_READ | GENERIC_WRITE : GENERIC_READ;
    if (!Attach(CreateFileW(path_.c_str(), rights, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                            FILE_ATTRIBUTE_NORMAL, nullptr)))
        return vorna::result_from_last_error();
    // Some file systems let a privileged account write despite the read-only attribute.
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
    const int code = FilePart::Read(bytes.data(), static_cast<int>(bytes.size()), HEADER);
    if (code == SQLITE_IOERR_SHORT_READ)
        return HRESULT_FROM_WIN32(ERROR_FILE_CORRUPT);
    if (code != SQLITE_OK)
        return vorna::result_from_win32(error_);
    return ArchiveHeader::Open(ArchiveHeader::NameOf(path_), bytes, keys_);
}

HRESULT ArchiveFile::Create() {
    access_ = Access::Write;
    const std::wstring path = path_ + std::wstring(NEW_SUFFIX);
    // Not shared until it is published. A file that was left by a process that was ended is overwritten.
    if (!Attach(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE | DELETE, 0, nullptr, CREATE_ALWAYS,
                            FILE_ATTRIBUTE_NORMAL, nullptr)))
        return vorna::result_from_last_error();
    created_ = true;
    ArchiveHeader::Bytes bytes;
    if (HRESULT result = ArchiveHeader::Make(ArchiveHeader::NameOf(path_), bytes, keys_); FAILED(result))
        return result;
    return FilePart::Write(bytes.data(), static_cast<int>(bytes.size()), HEADER) == SQLITE_OK
               ? S_OK
               : vorna::result_from_win32(error_);
}

HRESULT ArchiveFile::Publish() {
    if (FilePart::Sync() != SQLITE_OK)
        return vorna::result_from_win32(error_);
    // This process alone has the file that becomes the archive, so no other one can publish an archive now. If there is
    // none, a journal belongs to one that was deleted, and would be undone in the new one.
    if (GetFileAttributesW(path_.c_str()) != INVALID_FILE_ATTRIBUTES || GetLastError() != ERROR_FILE_NOT_FOUND)
        return HRESULT_FROM_WIN32(ERROR_ALREADY_EXISTS);
    if (DeleteJournal() != SQLITE_OK)
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

int ArchiveFile::Read(void* buffer, int count, LONGLONG offset) {
    const int code = FilePart::Read(buffer, count, offset);
    // While a journal exists the file may be in the middle of a change.
    if (created_ || journalExists_)
        return code;
    if (code == SQLITE_IOERR_SHORT_READ)
        ReportDamage();
    if (offset == 0 && std::memcmp(buffer, OPEN_BYTES.data(), std::min<size_t>(OPEN_BYTES.size(), count)) != 0)
        ReportDamage();
    return damaged_ ? SQLITE_IOERR_CORRUPTFS : code;
}

int ArchiveFile::Write(const void* buffer, int count, LONGLONG offset) {
    if (offset != 0 || count != PAGE_SIZE)
        return FilePart::Write(buffer, count, offset);
    std::array<BYTE, PAGE_SIZE> page;
    std::memcpy(page.data(), buffer, page.size());
    std::fill_n(page.begin(), SALT_SIZE, BYTE{0});
    return FilePart::Write(page.data(), count, 0);
}

int ArchiveFile::Truncate(LONGLONG size) {
    const DWORD earlier = error_;
    const int code = FilePart::Truncate(size);
    if (code == SQLITE_OK || created_ || journalExists_)
        return code;
    error_ = earlier;
    return SQLITE_OK;
}

int ArchiveFile::Sync() {
    return created_ ? SQLITE_OK : FilePart::Sync();
}

int ArchiveFile::Size(LONGLONG& size) {
    const int code = FilePart::Size(size);
    if (code != SQLITE_OK || created_ || journalExists_ || (size > 0 && size % PAGE_SIZE == 0))
        return code;
    ReportDamage();
    return SQLITE_IOERR_CORRUPTFS;
}

int ArchiveFile::OpenJournal(bool write, bool create) {
    if (!journal_.Attach(CreateFileW(JournalPath().c_str(), write ? GENERIC_READ | GENERIC_WRITE : GENERIC_READ,
                                     FILE_SHARE_READ, nullptr, create ? OPEN_ALWAYS : OPEN_EXISTING,
                                     FILE_ATTRIBUTE_NORMAL, nullptr)))
        return Fail(SQLITE_CANTOPEN, GetLastError());
    journalExists_ = true;
    return SQLITE_OK;
}

std::wstring ArchiveFile::JournalPath() const {
    return path_ + std::wstring(JOURNAL_SUFFIX);
}

// Only the handles, and with them the lock: the next operation undoes the change.
void ArchiveFile::Abandon(void* file) {
    auto* self = static_cast<ArchiveFile*>(file);
    self->journal_.Close();
    self->file_.reset();
}

int ArchiveFile::DeleteJournal() {
    // A virus scanner or an indexer may have a new file open for a moment.
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

} // namespace keldan
