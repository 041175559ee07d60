#include "common/log/LogConversions.h"

#include "common/log/LogLine.h"

#include <windows.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>

namespace vorna {

namespace {

bool IsOneOf(char character, const char* characters) {
    return character && std::strchr(characters, character);
}

// One conversion of a printf format: "%", flags, width, precision, size, letter.
class Conversion {
  public:
    void Add(char character) {
        if (length_ + 1 < sizeof text_)
            text_[length_++] = character;
    }
    void Add(int number) {
        char digits[16] = "";
        const char* end = std::to_chars(digits, digits + sizeof digits, number).ptr;
        for (const char* digit = digits; digit != end; ++digit)
            Add(*digit);
    }
    const char* c_str() {
        text_[length_] = '\0';
        return text_;
    }
    // The number of characters of a string to convert; the largest size_t if the format does not limit it.
    size_t Precision() {
        const char* point = std::strchr(c_str(), '.');
        return point ? static_cast<size_t>(std::max(0, std::atoi(point + 1))) : static_cast<size_t>(-1);
    }

  private:
    char text_[48] = "%";
    size_t length_ = 1;
};

// Converts at most the given number of characters to the system's ANSI code page.
void Convert(char (&narrow)[LOG_LINE_SIZE], const wchar_t* wide, size_t characters) {
    // No code page has more than four bytes per character.
    constexpr size_t BLOCK = 64;
    size_t length = 0;
    characters = wcsnlen(wide, std::min(characters, sizeof narrow));
    while (characters > 0 && length + BLOCK * 4 < sizeof narrow) {
        const size_t block = std::min(characters, BLOCK);
        length += static_cast<size_t>(WideCharToMultiByte(CP_ACP, 0, wide, static_cast<int>(block), narrow + length,
                                                          static_cast<int>(sizeof narrow - length), nullptr, nullptr));
        wide += block;
        characters -= block;
    }
    narrow[length] = '\0';
}

} // namespace

size_t FormatConverting(char* text, size_t room, const char* format, va_list arguments) {
    size_t length = 0;
    std::memset(text, 0, room);
    while (*format && length < room) {
        if (*format != '%') {
            text[length++] = *format++;
            continue;
        }
        ++format;
        Conversion conversion;
        for (; IsOneOf(*format, "+-# 0123456789.*"); ++format) {
            if (*format == '*')
                conversion.Add(va_arg(arguments, int));
            else
                conversion.Add(*format);
        }
        const char* size = format;
        while (IsOneOf(*format, "hlLwIFN") || (format != size && *size == 'I' && IsOneOf(*format, "3264")))
            ++format;
        const size_t sizeLength = static_cast<size_t>(format - size);
        const char letter = *format;
        if (!letter)
            break;
        ++format;
        if (letter == '%') {
            text[length++] = '%';
            continue;
        }

        const bool narrowSize = sizeLength == 1 && *size == 'h';
        const bool wideSize = sizeLength == 1 && IsOneOf(*size, "lw");
        const bool wide = (IsOneOf(letter, "SC") && !narrowSize) || (IsOneOf(letter, "sc") && wideSize);
        char* out = text + length;
        const size_t left = room - length;
        int written = 0;
        if (wide) {
            char narrow[LOG_LINE_SIZE];
            if (IsOneOf(letter, "Ss")) {
                const wchar_t* argument = va_arg(arguments, const wchar_t*);
                Convert(narrow, argument ? argument : L"(null)", conversion.Precision());
            } else {
                const wchar_t argument = static_cast<wchar_t>(va_arg(arguments, int));
                Convert(narrow, &argument, 1);
            }
            conversion.Add('s');
            written = _snprintf(out, left, conversion.c_str(), narrow);
        } else {
            for (size_t at = 0; at < sizeLength; ++at)
                conversion.Add(size[at]);
            conversion.Add(letter);
            const bool eightBytes = sizeLength >= 2 && (std::strncmp(size, "ll", 2) == 0 || size[1] == '6');
            // NOLINTBEGIN(bugprone-branch-clone): the branches read arguments of different types.
            if (IsOneOf(letter, "eEfgGaA"))
                written = _snprintf(out, left, conversion.c_str(), va_arg(arguments, double));
            else if (eightBytes)
                written = _snprintf(out, left, conversion.c_str(), va_arg(arguments, long long));
            else // Integers, characters and pointers have the same size.
                written = _snprintf(out, left, conversion.c_str(), va_arg(arguments, void*));
            // NOLINTEND(bugprone-branch-clone)
        }
        length += written < 0 ? strnlen(out, left) : static_cast<size_t>(written);
    }
    return std::min(length, room);
}

} // namespace vorna
