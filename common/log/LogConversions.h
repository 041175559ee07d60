// A printf for messages with characters that msvcrt cannot convert.
#pragma once

#include <cstdarg>
#include <cstddef>

namespace vorna {

// As msvcrt's _vsnprintf, but wide texts go through the system's ANSI code page, with "?" for what it lacks, where
// msvcrt gives up the rest of the text. Returns the length; the text is cut to the room and has no terminating zero.
size_t FormatConverting(char* text, size_t room, const char* format, va_list arguments);

} // namespace vorna
