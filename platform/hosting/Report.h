// Diagnostics for an administrator, written to the debugger output.
#pragma once

#include <windows.h>

#include <string>

namespace keldan {

inline void Report(const std::wstring& text) {
    OutputDebugStringW((L"QXKeldanHost: " + text + L"\n").c_str());
}

} // namespace keldan
