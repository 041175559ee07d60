// SQLite's file layer for archives.
#pragma once

namespace keldan {

class ArchiveFile;

// The name of the file layer that encrypts pages and stores them in the ArchiveFile of the current thread. Null: SQLite
// could not be initialized. Any thread.
const char* ArchiveVfsName();

// The archive in which this thread opens databases, during the lifetime of the object.
class CurrentArchive {
  public:
    explicit CurrentArchive(ArchiveFile& file);
    ~CurrentArchive();
    CurrentArchive(const CurrentArchive&) = delete;
    CurrentArchive& operator=(const CurrentArchive&) = delete;
};

} // namespace keldan
