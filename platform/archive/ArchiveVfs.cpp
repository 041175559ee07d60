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
    FilePart* part;
};

FilePart& PartOf(sqlite3_file* file) {
    return *reinterpret_cast<OpenFile*>(file)->part;
}

int Close(sqlite3_file* file) {
    PartOf(file).Close();
    return SQLITE_OK;
}
int Read(sqlite3_file* file, void* buffer, int count, sqlite3_int64 offset) {
    return PartOf(file).Read(buffer, count, offset);
}
int Write(sqlite3_file* file, const void* buffer, int count, sqlite3_int64 offset) {
    return PartOf(file).Write(buffer, count, offset);
}
int Truncate(sqlite3_file* file, sqlite3_int64 size) {
    return PartOf(file).Truncate(size);
}
int Sync(sqlite3_file* file, int) {
    return PartOf(file).Sync();
}
int Size(sqlite3_file* file, sqlite3_int64* size) {
    return PartOf(file).Size(*size);
}

// One lock of the file covers the whole operation, so the database needs no further locks.
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

constexpr sqlite3_io_methods METHODS = [] {
    sqlite3_io_methods methods{};
    methods.iVersion = 1;
    methods.xClose = Close;
    methods.xRead = Read;
    methods.xWrite = Write;
    methods.xTruncate = Truncate;
    methods.xSync = Sync;
    methods.xFileSize = Size;
    methods.xLock = NoLock;
    methods.xUnlock = NoLock;
    methods.xCheckReservedLock = NoReservedLock;
    methods.xFileControl = NoControl;
    methods.xSectorSize = SectorSize;
    methods.xDeviceCharacteristics = Characteristics;
    return methods;
}();

bool NamesJournal(const char* name) {
    return std::string_view(name).ends_with("-journal");
}

int Open(sqlite3_vfs*, const char*, sqlite3_file* file, int flags, int* given) {
    auto* opened = new (file) OpenFile{{nullptr}, current};
    if (!current)
        return SQLITE_CANTOPEN;
    if (given)
        *given = flags;
    int code = SQLITE_OK;
    if (!(flags & SQLITE_OPEN_MAIN_DB)) {
        // Temporary files are refused, so SQLite keeps their content in memory: no stream is written to disk
        // unencrypted.
        if (!(flags & SQLITE_OPEN_MAIN_JOURNAL))
            return SQLITE_CANTOPEN;
        opened->part = &current->Journal();
        code = current->OpenJournal(flags & SQLITE_OPEN_READWRITE, flags & SQLITE_OPEN_CREATE);
    }
    if (code == SQLITE_OK)
        opened->base.pMethods = &METHODS;
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
    Sleep(static_cast<DWORD>(microseconds) / 1000 + 1);
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
