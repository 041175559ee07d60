// The one place that converts SQLite's codes into the results of the archive manager.
#pragma once

#include <windows.h>

namespace keldan {

class ArchiveFile;

// code: a primary or extended SQLite code. The file may know more exactly what happened below the database.
[[nodiscard]] HRESULT ArchiveResult(int code, const ArchiveFile& file);

} // namespace keldan
