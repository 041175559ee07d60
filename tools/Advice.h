// What a person can do about a result code.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>

namespace vornactl {

// text: what the component said; some codes stand for several failures that only the text tells apart. Never empty.
std::wstring_view AdviceFor(HRESULT code, std::wstring_view text);

// The operating system's own name for a code, without the line break at its end; empty where it has none.
std::wstring SystemText(HRESULT code);

} // namespace vornactl
