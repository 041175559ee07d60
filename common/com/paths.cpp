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

bool is_device_name(std::wstring_view name) {
    name = name.substr(0, name.find(L'.'));
    name = name.substr(0, name.find_last_not_of(L' ') + 1);
    const auto is = [&](std::wstring_view device) {
        return CompareStringOrdinal(name.data(), static_cast<int>(name.size()), device.data(),
                                    static_cast<int>(device.size()), TRUE) == CSTR_EQUAL;
    };
    for (const wchar_t* device : {L"CON", L"PRN", L"AUX", L"NUL", L"CONIN$", L"CONOUT$"})
        if (is(device))
            return true;
    // The last character is a digit, also a superscript one.
    if (name.size() != 4 || std::wstring_view(L"0123456789\xB9\xB2\xB3").find(name.back()) == name.npos)
        return false;
    name.remove_suffix(1);
    return is(L"COM") || is(L"LPT");
}

bool is_on_drive(std::wstring_view path) {
    if (path.starts_with(LONG_PATH))
        path.remove_prefix(LONG_PATH.size());
    return path.size() >= 3 && ((path[0] | 0x20) >= L'a' && (path[0] | 0x20) <= L'z') && path[1] == L':' &&
           (path[2] == L'\\' || path[2] == L'/');
}

} // namespace vorna
