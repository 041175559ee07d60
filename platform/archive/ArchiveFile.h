// The files of one operation on an archive, below the database: the archive itself and its rollback journal.
#pragma once

#include "common/com/ProcessorFault.h"
#include "platform/archive/ArchiveHeader.h"
#include "platform/archive/Deadline.h"
#include "platform/archive/FilePart.h"

#include <windows.h>

#include <string>
#include <string_view>

namespace keldan {

// As a FilePart it is the database, which follows the header.
//
// The archive is open and locked from the first access of one operation to the last: shared by readers, exclusively by
// a writer. The lock ends with the object, also if a processor fault abandons it, and with the process. A new archive
// has another name ("<path>-new") until it is complete and is published, so an archive exists complete or not at all.
// One thread.
class ArchiveFile : public FilePart {
  public:
    static constexpr LONGLONG PAGE_SIZE = 4096;
    enum class Access { Read, Write };

    // True for a path at which there may be one of the files that are made beside an archive.
    static bool IsReserved(std::wstring_view path);

    explicit ArchiveFile(std::wstring path)
        : FilePart(ArchiveHeader::SIZE, error_), path_(std::move(path)), journal_(0, error_),
          abandoned_(Abandon, this) {}
    // Deletes a new file that was not published.
    ~ArchiveFile() override;

    // Opens and locks an archive and checks its header. If there is a journal of a writer that was terminated during a
    // change, a reader becomes a writer, so that the database can roll the change back. 0x80070002 no such file,
    // 0x80070003 no such folder, 0x80070005, 0x80070021 another process used it for longer than the deadline,
    // 0x80070570 damaged.
    [[nodiscard]] HRESULT Open(Access access, Deadline& deadline);
    // Begins a new archive with new keys. 0x80070020 (ERROR_SHARING_VIOLATION): another process is creating it.
    [[nodiscard]] HRESULT Create();
    // Gives the new archive its name, after its content is on disk and a journal that an earlier archive of this name
    // left is deleted. 0x800700B7 (ERROR_ALREADY_EXISTS): another process was first.
    [[nodiscard]] HRESULT Publish();

    const ArchiveKeys& Keys() const { return keys_; }
    bool Created() const { return created_; }
    bool Writable() const { return access_ == Access::Write; }
    // The first system error of both files; ERROR_SUCCESS if there was none.
    DWORD Error() const { return error_; }
    // The file is not in the state in which it was last closed.
    bool Damaged() const { return damaged_; }
    void ReportDamage() { damaged_ = true; }

    [[nodiscard]] int Read(void* buffer, int count, LONGLONG offset) override;
    [[nodiscard]] int Write(const void* buffer, int count, LONGLONG offset) override;
    // Succeeds after a change that is complete, even if the file stays longer: the next writer cuts it.
    [[nodiscard]] int Truncate(LONGLONG size) override;
    [[nodiscard]] int Sync() override;
    [[nodiscard]] int Size(LONGLONG& size) override;
    // The file stays open, and locked.
    void Close() override {}

    bool JournalExists() const { return journalExists_; }
    [[nodiscard]] int OpenJournal(bool write, bool create);
    FilePart& Journal() { return journal_; }
    [[nodiscard]] int DeleteJournal();

  private:
    static void Abandon(void* file);
    std::wstring JournalPath() const;
    [[nodiscard]] HRESULT OpenOnce();
    [[nodiscard]] HRESULT Lock(Deadline& deadline);
    [[nodiscard]] HRESULT OpenHeader();

    const std::wstring path_;
    FilePart journal_;
    Access access_ = Access::Read;
    ArchiveKeys keys_;
    DWORD error_ = ERROR_SUCCESS;
    bool damaged_ = false;
    bool created_ = false;
    bool published_ = false;
    bool journalExists_ = false;
    vorna::on_fault abandoned_;
};

} // namespace keldan
