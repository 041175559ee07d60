// The one place that converts SQLite's codes into the results of the archive manager.
#pragma once

#include <windows.h>

namespace keldan {

class ArchiveFile;

// code: a primary or extended SQLite code. file: its first system error is used if it is more exact than the code.
[[nodiscard]] HRESULT ArchiveResult(int code, const ArchiveFile& file);

} // namespace keldan
