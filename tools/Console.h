// The program's two outputs: UTF-8 in files and pipes, plain characters in a console window.
#pragma once

#include "tools/Failure.h"

#include <string_view>

namespace vornactl {

class Console {
  public:
    // Writes the text and a line break to standard output. Throws Failure where nobody takes it.
    static void Line(std::wstring_view text);
    // The same to standard error; what cannot be written there is lost.
    static void ErrorLine(std::wstring_view text) noexcept;
    // Shows a failure: what was tried, the code, what was said about it, what to do.
    static void Show(const Failure& failed);
};

} // namespace vornactl
