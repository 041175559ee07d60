// The files of one operation on an archive, below the database: the archive itself and its rollback journal.
#pragma once

#include "common/com/unique_any.h"
#include "platform/archive/ArchiveHeader.h"
#include "platform/archive/Deadline.h"

#include <windows.h>

#include <string>

namespace keldan {

// Open from the first access to the last of one operation, and locked for all of it: shared by readers, alone by a
// writer. The lock ends with the process. A file made new is one of another name ("<path>-new") until it is published
// whole, so an archive is there complete or not at all. One thread.
//
// ReadAt and the others serve the database and answer its codes; what went wrong underneath is kept in error() and
// damaged(), since the layers between do not pass everything on.
class ArchiveFile {
  public:
    enum class Access { Read, Write };

    explicit ArchiveFile(std::wstring path) : path_(std::move(path)) {}
    // A new file that was not published is deleted.
    ~ArchiveFile();
    ArchiveFile(const ArchiveFile&) = delete;
    ArchiveFile& operator=(const ArchiveFile&) = delete;

    // Opens and locks an archive and proves its header. A reader that finds the journal of a writer that was ended in
    // the middle becomes a writer, so that the database can undo the rest. 0x80070002 no such file, 0x80070003 no such
    // folder, 0x80070005, 0x80070021 it was held for longer than the deadline, 0x80070570 damaged.
    HRESULT Open(Access access, Deadline& deadline);
    // Starts a new archive with keys of its own. 0x80070020 (ERROR_SHARING_VIOLATION): another process is making it.
    HRESULT Create();
    // Gives the new archive its name, when its content is on disk. 0x800700B7 (ERROR_ALREADY_EXISTS): another process
    // was first.
    HRESULT Publish();

    const ArchiveKeys& Keys() const { return keys_; }
    bool Created() const { return created_; }
    bool Writable() const { return access_ == Access::Write; }
    // The first system error below the database; ERROR_SUCCESS where there was none.
    DWORD Error() const { return error_; }
    // The file does not have the form that it was left in.
    bool Damaged() const { return damaged_; }
    void ReportDamage() { damaged_ = true; }
    // The bytes behind the header; negative where that cannot be had.
    LONGLONG ContentSize() const;

    // The database's file. Offsets count from the end of the header.
    int ReadAt(void* buffer, int count, LONGLONG offset);
    int WriteAt(const void* buffer, int count, LONGLONG offset);
    int Truncate(LONGLONG size);
    int Sync();
    int FileSize(LONGLONG& size);

    // The journal.
    bool JournalExists() const { return journalExists_; }
    int OpenJournal(bool write, bool create);
    void CloseJournal() { journal_.reset(); }
    int ReadJournal(void* buffer, int count, LONGLONG offset);
    int WriteJournal(const void* buffer, int count, LONGLONG offset);
    int TruncateJournal(LONGLONG size);
    int SyncJournal();
    int JournalSize(LONGLONG& size);
    int DeleteJournal();

  private:
    std::wstring JournalPath() const { return path_ + L"-journal"; }
    HRESULT OpenOnce();
    HRESULT Lock(Deadline& deadline);
    HRESULT OpenHeader();
    int Fail(int code, DWORD error);
    int Read(HANDLE file, void* buffer, int count, LONGLONG offset);
    int Write(HANDLE file, const void* buffer, int count, LONGLONG offset);
    int SetSize(HANDLE file, LONGLONG size);
    int Flush(HANDLE file);

    std::wstring path_;
    vorna::unique_file file_;
    vorna::unique_file journal_;
    Access access_ = Access::Read;
    ArchiveKeys keys_;
    DWORD error_ = ERROR_SUCCESS;
    bool damaged_ = false;
    bool created_ = false;
    bool published_ = false;
    bool journalExists_ = false;
};

} // namespace keldan
