// The streams of one archive: the database inside its file, open for one operation.
#pragma once

#include "platform/archive/ArchiveFile.h"
#include "platform/archive/ArchiveVfs.h"

#include <sqlite3.h>

#include <string_view>
#include <vector>

namespace keldan {

// A stream's name or content: bytes, so that any text is preserved, including zeros and unpaired surrogates.
using Bytes = std::basic_string_view<BYTE>;

using UniqueStatement = vorna::unique_any<vorna::null_traits<sqlite3_stmt*, sqlite3_finalize>>;
using UniqueDatabase = vorna::unique_any<vorna::null_traits<sqlite3*, sqlite3_close>>;

// Every operation is one transaction: after S_OK it is on disk, after a failure nothing has changed. 0x80070570 means
// that the file was changed by something else since it was last closed. One thread, the one that created the object.
class ArchiveDatabase {
  public:
    // file: opened or created; must outlive this object.
    explicit ArchiveDatabase(ArchiveFile& file) : file_(file), current_(file) {}

    // Opens the database; in a new file it creates the table.
    [[nodiscard]] HRESULT Open();
    [[nodiscard]] HRESULT Count(long& count);
    // Passes the name of each stream to take, in the order in which the streams were first added, until take returns a
    // failure. The name is valid during the call.
    template <typename Take>
    [[nodiscard]] HRESULT ForEachName(Take take) {
        UniqueStatement rows;
        HRESULT result = Prepare("SELECT name FROM streams ORDER BY id", rows);
        while (SUCCEEDED(result)) {
            const int code = sqlite3_step(rows.get());
            result = Result(code);
            if (code != SQLITE_ROW)
                break;
            result = take(ColumnOf(rows));
        }
        return result;
    }
    // Stores a stream, replacing one of the same name.
    [[nodiscard]] HRESULT Put(Bytes name, Bytes data);
    // Passes the content to take, which returns an HRESULT; it is valid during the call. 0x80070002: no such stream.
    template <typename Take>
    [[nodiscard]] HRESULT Get(Bytes name, Take take) {
        UniqueStatement row;
        HRESULT result = Find(name, row);
        if (SUCCEEDED(result))
            result = take(ColumnOf(row));
        return result;
    }
    // 0x80070002: no such stream.
    [[nodiscard]] HRESULT Remove(Bytes name);

  private:
    // The first column of the current row.
    static Bytes ColumnOf(const UniqueStatement& row) {
        return {static_cast<const BYTE*>(sqlite3_column_blob(row.get(), 0)),
                static_cast<size_t>(sqlite3_column_bytes(row.get(), 0))};
    }
    [[nodiscard]] HRESULT Result(int code) const;
    [[nodiscard]] HRESULT Execute(const char* sql);
    [[nodiscard]] HRESULT CheckSize();
    [[nodiscard]] HRESULT DropJournal();
    [[nodiscard]] HRESULT Prepare(const char* sql, UniqueStatement& statement);
    [[nodiscard]] HRESULT Bind(const UniqueStatement& statement, int position, Bytes bytes);
    [[nodiscard]] HRESULT Find(Bytes name, UniqueStatement& row);

    ArchiveFile& file_;
    CurrentArchive current_;
    UniqueDatabase database_;
};

} // namespace keldan
