#include "platform/data/DataFolder.h"

#include "common/com/results.h"

#include <windows.h>

#include <string_view>
#include <vector>

namespace keldan {

namespace {

constexpr wchar_t PLATFORM_KEY[] = L"SOFTWARE\\Ostrevane\\QXKeldan";

std::wstring ReadSetting(const wchar_t* name) {
    std::vector<wchar_t> value(MAX_PATH);
    for (;;) {
        DWORD bytes = static_cast<DWORD>(value.size() * sizeof(wchar_t));
        // RRF_RT_REG_SZ takes REG_EXPAND_SZ too, expanded.
        const LSTATUS status =
            RegGetValueW(HKEY_LOCAL_MACHINE, PLATFORM_KEY, name, RRF_RT_REG_SZ, nullptr, value.data(), &bytes);
        if (status == ERROR_SUCCESS)
            return value.data();
        if (status != ERROR_MORE_DATA)
            return {};
        value.resize(value.size() * 2);
    }
}

std::wstring Expand(const std::wstring& text) {
    std::vector<wchar_t> expanded(ExpandEnvironmentStringsW(text.c_str(), nullptr, 0) + 1);
    const DWORD length = ExpandEnvironmentStringsW(text.c_str(), expanded.data(), static_cast<DWORD>(expanded.size()));
    return length > 0 && length <= expanded.size() ? std::wstring(expanded.data()) : text;
}

// Model files have long names, so their paths may be longer than the short form takes.
std::wstring LongForm(const std::wstring& path) {
    std::vector<wchar_t> full(GetFullPathNameW(path.c_str(), 0, nullptr, nullptr) + 1);
    const DWORD length = GetFullPathNameW(path.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr);
    if (length == 0 || length >= full.size())
        return path;
    std::wstring text(full.data(), length);
    while (text.size() > 3 && text.back() == L'\\')
        text.pop_back();
    if (text.starts_with(L"\\\\?\\") || text.starts_with(L"\\\\.\\"))
        return text;
    if (text.starts_with(L"\\\\"))
        return L"\\\\?\\UNC" + text.substr(1);
    return L"\\\\?\\" + text;
}

} // namespace

DataFolder::DataFolder(const std::wstring& path) : path_(LongForm(path)) {}

DataFolder DataFolder::Configured() {
    std::wstring path = ReadSetting(L"DataFolder");
    if (path.empty())
        path = L"%ProgramData%\\Ostrevane\\QXKeldan";
    return DataFolder(Expand(path));
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
    // Another process may have been faster.
    return CreateDirectoryW(path.c_str(), nullptr) || GetLastError() == ERROR_ALREADY_EXISTS
               ? S_OK
               : vorna::result_from_last_error();
}

} // namespace keldan
