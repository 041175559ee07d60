// What a person can do about a result code.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>

namespace vornactl {

// text: what the component reported, because some codes stand for several failures that only the text distinguishes.
// Never empty.
std::wstring_view AdviceFor(HRESULT code, std::wstring_view text);

// The operating system's message for a code, without the line break at its end; empty if it has none.
std::wstring SystemText(HRESULT code);

} // namespace vornactl
