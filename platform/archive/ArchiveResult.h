// The one place that turns what SQLite answered into the result that a caller of the archive manager gets.
#pragma once

#include <windows.h>

namespace keldan {

class ArchiveFile;

// code: a plain or extended SQLite result. The file may know better what happened below the database.
HRESULT ArchiveResult(int code, const ArchiveFile& file);

} // namespace keldan
