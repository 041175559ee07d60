// A file, from an offset on, as SQLite reads and writes it.
#pragma once

#include "common/com/unique_any.h"

namespace keldan {

// The operations return SQLite's codes. The system error of the first one that failed is kept as well, because SQLite
// does not return all of them. One thread.
class FilePart {
  public:
    // begin: the position of offset 0 in the file. error: receives the first system error; outlives the object.
    FilePart(LONGLONG begin, DWORD& error) : begin_(begin), error_(error) {}
    virtual ~FilePart() = default;
    FilePart(const FilePart&) = delete;
    FilePart& operator=(const FilePart&) = delete;

    // SQLITE_IOERR_SHORT_READ at the end of the file: the missing bytes are set to zero.
    [[nodiscard]] virtual int Read(void* buffer, int count, LONGLONG offset);
    [[nodiscard]] virtual int Write(const void* buffer, int count, LONGLONG offset);
    [[nodiscard]] virtual int Truncate(LONGLONG size);
    [[nodiscard]] virtual int Sync();
    [[nodiscard]] virtual int Size(LONGLONG& size);
    // Called when the database closes the file.
    virtual void Close() { file_.reset(); }

    // Takes ownership of an open file; false if the handle is not valid, without changing the system's last error.
    [[nodiscard]] bool Attach(HANDLE file) {
        file_.reset(file);
        return static_cast<bool>(file_);
    }

  protected:
    // Keeps the error and returns the code.
    int Fail(int code, DWORD error);

    vorna::unique_file file_;

  private:
    const LONGLONG begin_;
    DWORD& error_;
};

} // namespace keldan
