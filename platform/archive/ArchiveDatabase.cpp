#include "platform/archive/ArchiveDatabase.h"

#include "common/com/results.h"
#include "platform/archive/ArchiveResult.h"

#include <array>
#include <atomic>
#include <cstdio>
#include <cstring>

namespace keldan {

namespace {

// SQLite distinguishes open databases by their names; the file layer decides where the pages are stored.
std::array<char, 32> NextName() {
    static std::atomic<unsigned> opened{0};
    std::array<char, 32> name;
    sqlite3_snprintf(static_cast<int>(name.size()), name.data(), "archive-%u", ++opened);
    return name;
}

int SetKey(sqlite3* database, const ArchiveKeys& keys) {
    constexpr std::string_view PREFIX = "raw:";
    std::array<BYTE, PREFIX.size() + sizeof keys.pages> text;
    std::memcpy(text.data(), PREFIX.data(), PREFIX.size());
    std::memcpy(text.data() + PREFIX.size(), keys.pages.data(), keys.pages.size());
    int code = sqlite3_key(database, text.data(), static_cast<int>(text.size()));
    SecureZeroMemory(text.data(), text.size());
    return code;
}

} // namespace

HRESULT ArchiveDatabase::Open() {
    const char* files = ArchiveVfsName();
    if (!files)
        return E_OUTOFMEMORY;
    int flags = SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE |
                (file_.Writable() ? SQLITE_OPEN_READWRITE : SQLITE_OPEN_READONLY) |
                (file_.Created() ? SQLITE_OPEN_CREATE : 0);
    int code = sqlite3_open_v2(NextName().data(), database_.put(), flags, files);
    if (code == SQLITE_OK)
        code = SetKey(database_.get(), file_.Keys());
    if (code != SQLITE_OK)
        return Result(code);
    if (!file_.Created()) {
        HRESULT result = CheckSize();
        return SUCCEEDED(result) && file_.JournalExists() ? DropJournal() : result;
    }
    // No other process uses the file yet, and it is flushed as a whole before any does.
    return Execute("PRAGMA page_size=4096; PRAGMA auto_vacuum=FULL; PRAGMA journal_mode=OFF; PRAGMA synchronous=OFF;"
                   "CREATE TABLE streams(id INTEGER PRIMARY KEY, name BLOB NOT NULL UNIQUE, data BLOB NOT NULL)");
}

HRESULT ArchiveDatabase::Count(long& count) {
    UniqueStatement statement;
    if (HRESULT result = Prepare("SELECT count(*) FROM streams", statement); FAILED(result))
        return result;
    int code = sqlite3_step(statement.get());
    if (code == SQLITE_ROW)
        count = sqlite3_column_int(statement.get(), 0);
    return Result(code);
}

HRESULT ArchiveDatabase::Put(Bytes name, Bytes data) {
    UniqueStatement statement;
    HRESULT result = Prepare("INSERT INTO streams(name, data) VALUES(?1, ?2) "
                             "ON CONFLICT(name) DO UPDATE SET data=excluded.data",
                             statement);
    if (SUCCEEDED(result))
        result = Bind(statement, 1, name);
    if (SUCCEEDED(result))
        result = Bind(statement, 2, data);
    return FAILED(result) ? result : Result(sqlite3_step(statement.get()));
}

HRESULT ArchiveDatabase::Remove(Bytes name) {
    UniqueStatement statement;
    HRESULT result = Prepare("DELETE FROM streams WHERE name=?1", statement);
    if (SUCCEEDED(result))
        result = Bind(statement, 1, name);
    if (SUCCEEDED(result))
        result = Result(sqlite3_step(statement.get()));
    if (SUCCEEDED(result) && sqlite3_changes(database_.get()) == 0)
        return HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
    return result;
}

HRESULT ArchiveDatabase::Result(int code) const {
    return ArchiveResult(code, file_);
}

HRESULT ArchiveDatabase::Execute(const char* sql) {
    return Result(sqlite3_exec(database_.get(), sql, nullptr, nullptr, nullptr));
}

// The number of pages is authenticated, so a file that has fewer was cut. It may have more: a change that makes the
// database smaller is committed when its journal is deleted, and the file is cut after that. What follows the last page
// is never read. It is cut off before the next change, which does not begin if that fails.
HRESULT ArchiveDatabase::CheckSize() {
    UniqueStatement statement;
    if (HRESULT result = Prepare("PRAGMA page_count", statement); FAILED(result))
        return result;
    int code = sqlite3_step(statement.get());
    if (code != SQLITE_ROW)
        return Result(code);
    const LONGLONG expected = sqlite3_column_int64(statement.get(), 0) * ArchiveFile::PAGE_SIZE;
    LONGLONG size = 0;
    code = file_.Size(size);
    if (code == SQLITE_OK && size < expected)
        file_.ReportDamage();
    else if (code == SQLITE_OK && size > expected && file_.Writable())
        code = file_.FilePart::Truncate(expected);
    return Result(code);
}

// The database has been read, so an unfinished change has been rolled back. A journal that still exists contains no
// change: its writer was terminated before the first one. Once it is deleted, the file is checked strictly again.
HRESULT ArchiveDatabase::DropJournal() {
    int code = file_.DeleteJournal();
    std::array<BYTE, 100> start;
    if (code == SQLITE_OK)
        code = file_.Read(start.data(), static_cast<int>(start.size()), 0);
    return Result(code);
}

HRESULT ArchiveDatabase::Prepare(const char* sql, UniqueStatement& statement) {
    return Result(sqlite3_prepare_v2(database_.get(), sql, -1, statement.put(), nullptr));
}

HRESULT ArchiveDatabase::Bind(const UniqueStatement& statement, int position, Bytes bytes) {
    // The address of an empty range may be null, which SQLite would store as NULL instead of an empty value.
    if (bytes.empty())
        return Result(sqlite3_bind_zeroblob(statement.get(), position, 0));
    return Result(sqlite3_bind_blob64(statement.get(), position, bytes.data(), bytes.size(), SQLITE_STATIC));
}

HRESULT ArchiveDatabase::Find(Bytes name, UniqueStatement& row) {
    HRESULT result = Prepare("SELECT data FROM streams WHERE name=?1", row);
    if (SUCCEEDED(result))
        result = Bind(row, 1, name);
    if (FAILED(result))
        return result;
    int code = sqlite3_step(row.get());
    result = Result(code);
    if (SUCCEEDED(result) && code != SQLITE_ROW)
        return HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);
    return result;
}

} // namespace keldan
