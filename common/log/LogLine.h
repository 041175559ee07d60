// The text of one log line, made without the heap.
#pragma once

#include <cstdarg>
#include <cstddef>

namespace vorna {

inline constexpr size_t LOG_LINE_SIZE = 1152;

// Writes the line with its line end and returns its length, which is below LOG_LINE_SIZE.
//   head    what stands before the message, with "%" doubled
//   dated   whether date, time, process, thread and level stand before that
//   format  msvcrt's narrow printf format; above 511 characters it is cut, with a warning in the line
size_t FormatLogLine(char (&line)[LOG_LINE_SIZE], const char* head, bool dated, unsigned level, const char* format,
                     va_list arguments);

} // namespace vorna
