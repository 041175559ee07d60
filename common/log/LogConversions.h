// A printf for messages with characters that msvcrt cannot convert.
#pragma once

#include <cstdarg>
#include <cstddef>

namespace vorna {

// Like msvcrt's _vsnprintf, but converts wide strings to the system's ANSI code page, with "?" for characters that it
// lacks; msvcrt would drop the rest of the text. Returns the length. The text is truncated to room and then has no
// terminating zero.
size_t FormatConverting(char* text, size_t room, const char* format, va_list arguments);

} // namespace vorna
