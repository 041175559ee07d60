#include "platform/data/DataFolder.h"

#include "common/com/paths.h"
#include "common/com/registry.h"
#include "common/com/results.h"

namespace keldan {

namespace {

constexpr wchar_t PLATFORM_KEY[] = L"SOFTWARE\\Ostrevane\\QXKeldan";

std::wstring Expand(const std::wstring& text) {
    std::wstring expanded(ExpandEnvironmentStringsW(text.c_str(), nullptr, 0), L'\0');
    const DWORD length = ExpandEnvironmentStringsW(text.c_str(), expanded.data(), static_cast<DWORD>(expanded.size()));
    return length > 0 && length <= expanded.size() ? expanded.substr(0, length - 1) : text;
}

} // namespace

DataFolder::DataFolder(const std::wstring& path) : path_(vorna::long_path(path)) {}

DataFolder DataFolder::Configured() {
    const std::wstring path = vorna::registry_text(HKEY_LOCAL_MACHINE, PLATFORM_KEY, L"DataFolder").value_or(L"");
    return DataFolder(Expand(path.empty() ? L"%ProgramData%\\Ostrevane\\QXKeldan" : path));
}

HRESULT CreateFolder(const std::wstring& path) {
    if (CreateDirectoryW(path.c_str(), nullptr))
        return S_OK;
    const DWORD error = GetLastError();
    const DWORD found = GetFileAttributesW(path.c_str());
    if (found != INVALID_FILE_ATTRIBUTES && (found & FILE_ATTRIBUTE_DIRECTORY))
        return S_OK;
    const size_t parent = path.rfind(L'\\');
    if (error != ERROR_PATH_NOT_FOUND || parent == std::wstring::npos)
        return vorna::result_from_win32(error);
    const HRESULT result = CreateFolder(path.substr(0, parent));
    if (FAILED(result))
        return result;
    // Another process may have created it.
    return CreateDirectoryW(path.c_str(), nullptr) || GetLastError() == ERROR_ALREADY_EXISTS
               ? S_OK
               : vorna::result_from_last_error();
}

} // namespace keldan
