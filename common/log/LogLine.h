// Formats one log line without allocating memory.
#pragma once

#include <cstdarg>
#include <cstddef>

namespace vorna {

inline constexpr size_t LOG_LINE_SIZE = 1152;

// Writes the line with its line end and returns its length, which is below LOG_LINE_SIZE.
//   head    the text before the message, with "%" doubled
//   dated   whether date, time, process, thread and level precede it
//   format  msvcrt's narrow printf format; if it has more than 511 characters, it is truncated and the line has a
//           warning
size_t FormatLogLine(char (&line)[LOG_LINE_SIZE], const char* head, bool dated, unsigned level, const char* format,
                     va_list arguments);

} // namespace vorna
