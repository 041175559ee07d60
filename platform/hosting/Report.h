// What only a person who watches the debugger output can do something about.
#pragma once

#include <windows.h>

#include <string>

namespace keldan {

inline void Report(const std::wstring& text) {
    OutputDebugStringW((L"QXKeldanHost: " + text + L"\n").c_str());
}

// A result in the notation that people look it up by.
inline std::wstring ResultText(HRESULT result) {
    wchar_t text[16];
    swprintf(text, std::size(text), L"0x%08lX", static_cast<unsigned long>(result));
    return text;
}

} // namespace keldan
