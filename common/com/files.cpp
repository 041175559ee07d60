#include "common/com/files.h"

#include "common/com/results.h"

namespace vorna {

unique_file open_for_reading(const std::wstring& path) {
    return unique_file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                   nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
}

HRESULT read_file(HANDLE file, std::uint64_t limit, std::string& bytes) {
    bytes.clear();
    // Names such as CON are devices in every folder.
    if (GetFileType(file) != FILE_TYPE_DISK)
        return E_ACCESSDENIED;
    LARGE_INTEGER size{};
    if (!GetFileSizeEx(file, &size))
        return result_from_last_error();
    if (static_cast<std::uint64_t>(size.QuadPart) > limit)
        return result_from_win32(ERROR_FILE_TOO_LARGE);
    bytes.resize(static_cast<std::size_t>(size.QuadPart));
    std::size_t done = 0;
    for (DWORD count = 1; done < bytes.size() && count != 0; done += count)
        if (!ReadFile(file, bytes.data() + done, static_cast<DWORD>(bytes.size() - done), &count, nullptr))
            return result_from_last_error();
    bytes.resize(done);
    return S_OK;
}

} // namespace vorna
