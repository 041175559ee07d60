#include "platform/archive/ArchiveResult.h"

#include "common/com/results.h"
#include "platform/archive/ArchiveFile.h"

#include <sqlite3.h>

namespace keldan {

HRESULT ArchiveResult(int code, const ArchiveFile& file) {
    if (file.Damaged())
        return HRESULT_FROM_WIN32(ERROR_FILE_CORRUPT);
    switch (code & 0xFF) {
    case SQLITE_OK:
    case SQLITE_ROW:
    case SQLITE_DONE:
        return S_OK;
    case SQLITE_FULL:
        return HRESULT_FROM_WIN32(ERROR_DISK_FULL);
    case SQLITE_NOMEM:
        return E_OUTOFMEMORY;
    case SQLITE_TOOBIG:
        return HRESULT_FROM_WIN32(ERROR_FILE_TOO_LARGE);
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        return HRESULT_FROM_WIN32(ERROR_LOCK_VIOLATION);
    case SQLITE_READONLY:
    case SQLITE_PERM:
        return HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED);
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
        // The cipher reports a page that could not be read as one that was changed.
        return file.Error() == ERROR_SUCCESS ? HRESULT_FROM_WIN32(ERROR_FILE_CORRUPT)
                                             : vorna::result_from_win32(file.Error());
    default:
        if (code == SQLITE_IOERR_NOMEM)
            return E_OUTOFMEMORY;
        if (code == SQLITE_IOERR_CORRUPTFS || code == SQLITE_IOERR_SHORT_READ)
            return HRESULT_FROM_WIN32(ERROR_FILE_CORRUPT);
        return vorna::result_from_win32(file.Error());
    }
}

} // namespace keldan
