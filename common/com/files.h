// Reading of whole files.
#pragma once

#include "common/com/unique_any.h"

#include <cstdint>
#include <string>

namespace vorna {

// Opens an existing file without preventing others from reading, writing or deleting it. Empty on failure; GetLastError
// then has the reason.
unique_file open_for_reading(const std::wstring& path);

// Reads an open file from its beginning to its end. E_ACCESSDENIED: it is not a file on a disk but a pipe or a device;
// 0x800700DF (ERROR_FILE_TOO_LARGE): it has more than limit bytes.
[[nodiscard]] HRESULT read_file(HANDLE file, std::uint64_t limit, std::string& bytes);

} // namespace vorna
