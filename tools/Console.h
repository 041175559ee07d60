// The program's two outputs: UTF-8 in files and pipes, characters in a console window.
#pragma once

#include "tools/Failure.h"

#include <string_view>

namespace vornactl {

class Console {
  public:
    // Writes the text and a line break to standard output. Throws Failure if it cannot be written.
    static void Line(std::wstring_view text);
    // The same to standard error; what cannot be written there is lost.
    static void ErrorLine(std::wstring_view text) noexcept;
    // Shows a failure: what was tried, the code, its text, what to do.
    static void Show(const Failure& failure);
};

} // namespace vornactl
