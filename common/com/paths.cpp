#include "common/com/paths.h"

#include <windows.h>

namespace vorna {

std::wstring full_path(std::wstring_view path) {
    const std::wstring given(path);
    std::wstring full(GetFullPathNameW(given.c_str(), 0, nullptr, nullptr), L'\0');
    const DWORD length = GetFullPathNameW(given.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr);
    full.resize(length < full.size() ? length : 0);
    return full;
}

std::wstring long_path(std::wstring_view path) {
    std::wstring full = full_path(path);
    if (full.empty())
        return std::wstring(path);
    while (full.size() > 3 && full.back() == L'\\')
        full.pop_back();
    if (full.starts_with(LONG_PATH) || full.starts_with(L"\\\\.\\"))
        return full;
    if (full.starts_with(L"\\\\"))
        return std::wstring(LONG_PATH) + L"UNC" + full.substr(1);
    return std::wstring(LONG_PATH) + full;
}

std::wstring plain_path(std::wstring_view path) {
    if (path.starts_with(LONG_PATH) && is_on_drive(path))
        path.remove_prefix(LONG_PATH.size());
    return std::wstring(path);
}

bool is_on_drive(std::wstring_view path) {
    if (path.starts_with(LONG_PATH))
        path.remove_prefix(LONG_PATH.size());
    return path.size() >= 3 && ((path[0] | 0x20) >= L'a' && (path[0] | 0x20) <= L'z') && path[1] == L':' &&
           (path[2] == L'\\' || path[2] == L'/');
}

} // namespace vorna
