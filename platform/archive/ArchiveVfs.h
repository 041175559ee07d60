// Where the database meets the files: SQLite's file layer for archives.
#pragma once

namespace keldan {

class ArchiveFile;

// The name of the file layer that encrypts and puts its pages into the current thread's ArchiveFile. Null: SQLite could
// not be started. Any thread.
const char* ArchiveVfsName();

// The archive that this thread's databases are opened in, for the life of the object.
class CurrentArchive {
  public:
    explicit CurrentArchive(ArchiveFile& file);
    ~CurrentArchive();
    CurrentArchive(const CurrentArchive&) = delete;
    CurrentArchive& operator=(const CurrentArchive&) = delete;
};

} // namespace keldan
