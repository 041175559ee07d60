#include "platform/archive/ArchiveVfs.h"

#include "platform/archive/ArchiveFile.h"

#include <sqlite3.h>

#include <windows.h>

#include <bcrypt.h>

#include <cstdio>
#include <cstring>
#include <new>
#include <string_view>

namespace keldan {

namespace {

thread_local ArchiveFile* current = nullptr;

// What SQLite allocates for an open file. The archive outlives it.
struct OpenFile {
    sqlite3_file base;
    ArchiveFile* archive;
};

ArchiveFile& Archive(sqlite3_file* file) {
    return *reinterpret_cast<OpenFile*>(file)->archive;
}

// The whole operation runs under one lock of the file, so the database's own locks have nothing to do.
int NoLock(sqlite3_file*, int) {
    return SQLITE_OK;
}
int NoReservedLock(sqlite3_file*, int* held) {
    *held = 0;
    return SQLITE_OK;
}
int NoControl(sqlite3_file*, int, void*) {
    return SQLITE_NOTFOUND;
}
int SectorSize(sqlite3_file*) {
    return 4096;
}
int Characteristics(sqlite3_file*) {
    return SQLITE_IOCAP_UNDELETABLE_WHEN_OPEN | SQLITE_IOCAP_POWERSAFE_OVERWRITE;
}

int CloseMain(sqlite3_file*) {
    return SQLITE_OK;
}
int ReadMain(sqlite3_file* file, void* buffer, int count, sqlite3_int64 offset) {
    return Archive(file).ReadAt(buffer, count, offset);
}
int WriteMain(sqlite3_file* file, const void* buffer, int count, sqlite3_int64 offset) {
    return Archive(file).WriteAt(buffer, count, offset);
}
int TruncateMain(sqlite3_file* file, sqlite3_int64 size) {
    return Archive(file).Truncate(size);
}
int SyncMain(sqlite3_file* file, int) {
    return Archive(file).Sync();
}
int SizeOfMain(sqlite3_file* file, sqlite3_int64* size) {
    return Archive(file).FileSize(*size);
}

int CloseJournal(sqlite3_file* file) {
    Archive(file).CloseJournal();
    return SQLITE_OK;
}
int ReadJournal(sqlite3_file* file, void* buffer, int count, sqlite3_int64 offset) {
    return Archive(file).ReadJournal(buffer, count, offset);
}
int WriteJournal(sqlite3_file* file, const void* buffer, int count, sqlite3_int64 offset) {
    return Archive(file).WriteJournal(buffer, count, offset);
}
int TruncateJournal(sqlite3_file* file, sqlite3_int64 size) {
    return Archive(file).TruncateJournal(size);
}
int SyncJournal(sqlite3_file* file, int) {
    return Archive(file).SyncJournal();
}
int SizeOfJournal(sqlite3_file* file, sqlite3_int64* size) {
    return Archive(file).JournalSize(*size);
}

sqlite3_io_methods MakeMethods() {
    sqlite3_io_methods methods{};
    methods.iVersion = 1;
    methods.xLock = NoLock;
    methods.xUnlock = NoLock;
    methods.xCheckReservedLock = NoReservedLock;
    methods.xFileControl = NoControl;
    methods.xSectorSize = SectorSize;
    methods.xDeviceCharacteristics = Characteristics;
    return methods;
}

const sqlite3_io_methods& MainMethods() {
    static const sqlite3_io_methods methods = [] {
        sqlite3_io_methods made = MakeMethods();
        made.xClose = CloseMain;
        made.xRead = ReadMain;
        made.xWrite = WriteMain;
        made.xTruncate = TruncateMain;
        made.xSync = SyncMain;
        made.xFileSize = SizeOfMain;
        return made;
    }();
    return methods;
}

const sqlite3_io_methods& JournalMethods() {
    static const sqlite3_io_methods methods = [] {
        sqlite3_io_methods made = MakeMethods();
        made.xClose = CloseJournal;
        made.xRead = ReadJournal;
        made.xWrite = WriteJournal;
        made.xTruncate = TruncateJournal;
        made.xSync = SyncJournal;
        made.xFileSize = SizeOfJournal;
        return made;
    }();
    return methods;
}

bool NamesJournal(const char* name) {
    return std::string_view(name).ends_with("-journal");
}

int Open(sqlite3_vfs*, const char*, sqlite3_file* file, int flags, int* given) {
    auto* opened = new (file) OpenFile{{nullptr}, current};
    if (!current)
        return SQLITE_CANTOPEN;
    if (given)
        *given = flags;
    if (flags & SQLITE_OPEN_MAIN_DB) {
        opened->base.pMethods = &MainMethods();
        return SQLITE_OK;
    }
    // Everything else that SQLite may want a file for is kept in memory: nothing of a stream lies open on the disk.
    if (!(flags & SQLITE_OPEN_MAIN_JOURNAL))
        return SQLITE_CANTOPEN;
    int code = current->OpenJournal(flags & SQLITE_OPEN_READWRITE, flags & SQLITE_OPEN_CREATE);
    if (code == SQLITE_OK)
        opened->base.pMethods = &JournalMethods();
    return code;
}

int Delete(sqlite3_vfs*, const char* name, int) {
    return current && NamesJournal(name) ? current->DeleteJournal() : SQLITE_IOERR_DELETE_NOENT;
}

int Exists(sqlite3_vfs*, const char* name, int, int* answer) {
    *answer = current && NamesJournal(name) && current->JournalExists();
    return SQLITE_OK;
}

int FullName(sqlite3_vfs*, const char* name, int size, char* full) {
    sqlite3_snprintf(size, full, "%s", name);
    return SQLITE_OK;
}

int Randomness(sqlite3_vfs*, int count, char* bytes) {
    NTSTATUS status = BCryptGenRandom(nullptr, reinterpret_cast<PUCHAR>(bytes), static_cast<ULONG>(count),
                                      BCRYPT_USE_SYSTEM_PREFERRED_RNG);
    return status < 0 ? 0 : count;
}

int Pause(sqlite3_vfs*, int microseconds) {
    Sleep(static_cast<DWORD>(microseconds / 1000 + 1));
    return microseconds;
}

int Now(sqlite3_vfs*, double* days) {
    FILETIME time;
    GetSystemTimeAsFileTime(&time);
    ULARGE_INTEGER ticks{{time.dwLowDateTime, time.dwHighDateTime}};
    // From 100 nanoseconds since 1601 to Julian days.
    *days = 2305813.5 + static_cast<double>(ticks.QuadPart) / 864e9;
    return SQLITE_OK;
}

int LastError(sqlite3_vfs*, int, char*) {
    return current ? static_cast<int>(current->Error()) : 0;
}

constexpr char FILES_NAME[] = "keldan";
constexpr char CIPHER_NAME[] = "multipleciphers-keldan";

bool Register() {
    static sqlite3_vfs files{};
    files.iVersion = 1;
    files.szOsFile = sizeof(OpenFile);
    files.mxPathname = 128;
    files.zName = FILES_NAME;
    files.xOpen = Open;
    files.xDelete = Delete;
    files.xAccess = Exists;
    files.xFullPathname = FullName;
    files.xRandomness = Randomness;
    files.xSleep = Pause;
    files.xCurrentTime = Now;
    files.xGetLastError = LastError;
    return sqlite3_initialize() == SQLITE_OK && sqlite3_vfs_register(&files, 0) == SQLITE_OK &&
           sqlite3mc_vfs_create(FILES_NAME, 0) == SQLITE_OK && sqlite3_vfs_find(CIPHER_NAME);
}

} // namespace

const char* ArchiveVfsName() {
    static const bool registered = Register();
    return registered ? CIPHER_NAME : nullptr;
}

CurrentArchive::CurrentArchive(ArchiveFile& file) {
    current = &file;
}
CurrentArchive::~CurrentArchive() {
    current = nullptr;
}

} // namespace keldan
