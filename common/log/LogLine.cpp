#include "common/log/LogLine.h"

#include "common/log/LogConversions.h"

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace vorna {

namespace {

// Formats of this length or longer are truncated.
constexpr size_t FORMAT_LIMIT = 512;
constexpr size_t WORKING_SIZE = 640;

// A format under construction; text that does not fit is dropped.
class WorkingFormat {
  public:
    // There are always two zeros at the end, because a printf may skip the first one after a lone "%".
    WorkingFormat() { text_[0] = text_[1] = '\0'; }

    const char* c_str() const { return text_; }

    void Add(std::string_view part) { Put(part.substr(0, Room())); }
    // Adds the part if all of it fits; otherwise adds nothing and returns false.
    bool AddWhole(std::string_view part) {
        if (part.size() > Room())
            return false;
        Put(part);
        return true;
    }
    void Add(unsigned long number) {
        char digits[16];
        Add({digits, static_cast<size_t>(std::to_chars(digits, std::end(digits), number).ptr - digits)});
    }

  private:
    size_t Room() const { return WORKING_SIZE - 2 - length_; }
    void Put(std::string_view part) {
        std::memcpy(text_ + length_, part.data(), part.size());
        length_ += part.size();
        text_[length_] = text_[length_ + 1] = '\0';
    }

    char text_[WORKING_SIZE];
    size_t length_ = 0;
};

// "<date>-<time>" of the current second.
using Stamp = char[40];

void MakeStamp(Stamp& stamp) {
    SYSTEMTIME now;
    GetLocalTime(&now);
    char date[20];
    char time[16];
    if (!GetDateFormatA(LOCALE_SYSTEM_DEFAULT, 0, &now, "M'/'d'/'yy", date, sizeof date))
        date[0] = '\0';
    if (!GetTimeFormatA(LOCALE_SYSTEM_DEFAULT, 0, &now, "HH':'mm':'ss", time, sizeof time))
        time[0] = '\0';
    // Every byte is set, because the cache copies the whole array.
    std::memset(stamp, 0, sizeof stamp);
    char* end = std::copy_n(date, std::strlen(date), stamp);
    *end++ = '-';
    std::copy_n(time, std::strlen(time), end);
}

// Caches the stamp of the last second with a message: making a stamp costs more than formatting the rest of the line.
class StampCache {
  public:
    void Read(Stamp& stamp) {
        FILETIME time;
        GetSystemTimeAsFileTime(&time);
        const auto second = static_cast<unsigned>(
            (static_cast<unsigned long long>(time.dwHighDateTime) << 32 | time.dwLowDateTime) / 10'000'000);
        const unsigned version = version_.load(std::memory_order_acquire);
        if (version % 2 == 0 && second_.load(std::memory_order_relaxed) == second) {
            for (size_t word = 0; word < WORDS; ++word) {
                const unsigned part = words_[word].load(std::memory_order_relaxed);
                std::memcpy(stamp + word * sizeof part, &part, sizeof part);
            }
            std::atomic_thread_fence(std::memory_order_acquire);
            if (version_.load(std::memory_order_relaxed) == version)
                return;
        }
        MakeStamp(stamp);
        Write(stamp, second);
    }

  private:
    static constexpr size_t WORDS = sizeof(Stamp) / sizeof(unsigned);

    // A sequence lock. Readers never wait: if the version is odd or changes while they read, they make the stamp
    // themselves.
    void Write(const Stamp& stamp, unsigned second) {
        unsigned version = version_.load(std::memory_order_relaxed);
        if (version % 2 != 0 || !version_.compare_exchange_strong(version, version + 1))
            return;
        std::atomic_thread_fence(std::memory_order_release);
        second_.store(second, std::memory_order_relaxed);
        for (size_t word = 0; word < WORDS; ++word) {
            unsigned part;
            std::memcpy(&part, stamp + word * sizeof part, sizeof part);
            words_[word].store(part, std::memory_order_relaxed);
        }
        version_.store(version + 2, std::memory_order_release);
    }

    std::atomic<unsigned> version_ = 0;
    std::atomic<unsigned> second_ = 0;
    std::atomic<unsigned> words_[WORDS] = {};
};

constinit StampCache stamps;

void AddOrigin(WorkingFormat& working, unsigned level) {
    Stamp stamp;
    stamps.Read(stamp);
    working.Add(stamp);
    working.Add(",[");
    working.Add(GetCurrentProcessId());
    working.Add(":");
    working.Add(GetCurrentThreadId());
    working.Add("/");
    working.Add(static_cast<unsigned long>(level));
    working.Add("] ");
}

bool IsStringConversion(std::string_view format, size_t percent) {
    return percent + 1 < format.size() && (format[percent + 1] == 's' || format[percent + 1] == 'S');
}

// Every "%" directly followed by "s" or "S" among the first FORMAT_LIMIT characters; the letter may follow them.
size_t CountStrings(std::string_view format) {
    size_t count = 0;
    for (size_t at = format.find('%'); at < FORMAT_LIMIT; at = format.find('%', at + 1))
        count += IsStringConversion(format, at);
    return count;
}

// The format without a conversion that truncation left incomplete at its end.
std::string_view WithoutIncompleteConversion(std::string_view format) {
    for (size_t at = format.find('%'); at != format.npos; at = format.find('%', at)) {
        size_t end = format.find_first_not_of("+-# 0123456789.*hlLIwFN", at + 1);
        if (end == format.npos)
            return format.substr(0, at);
        at = end + 1;
    }
    return format;
}

// Adds the format with a precision in each string conversion, so that the strings leave room for the rest of the line.
void AddWithPrecision(WorkingFormat& working, std::string_view format, size_t precision) {
    char limited[16] = "%.";
    char* end = std::to_chars(limited + 2, std::end(limited) - 1, precision).ptr;
    while (!format.empty()) {
        const size_t percent = format.find('%');
        if (percent != 0) {
            const size_t plain = std::min(percent, format.size());
            working.Add(format.substr(0, plain));
            format.remove_prefix(plain);
        } else {
            const size_t pair = std::min<size_t>(2, format.size());
            std::string_view piece = format.substr(0, pair);
            if (IsStringConversion(format, 0)) {
                *end = format[1];
                piece = {limited, static_cast<size_t>(end + 1 - limited)};
            }
            // A truncated conversion would be a different conversion.
            if (!working.AddWhole(piece))
                return;
            format.remove_prefix(pair);
        }
    }
}

void AddMessage(WorkingFormat& working, std::string_view format) {
    const bool hasString = format.find("%s") != format.npos || format.find("%S") != format.npos;
    const size_t strings = hasString ? CountStrings(format) : 0;
    if (format.size() >= FORMAT_LIMIT) {
        working.Add("WARNING!!! LogMessage() format string > 512 chars:");
        format = format.substr(0, FORMAT_LIMIT - 1);
    }
    const size_t length = format.size();
    if (length == FORMAT_LIMIT - 1)
        format = WithoutIncompleteConversion(format);
    if (strings > 0)
        AddWithPrecision(working, format, (2 * (FORMAT_LIMIT - strings) - length) / strings);
    else
        working.Add(format);
}

} // namespace

size_t FormatLogLine(char (&line)[LOG_LINE_SIZE], const char* head, bool dated, unsigned level, const char* format,
                     va_list arguments) {
    WorkingFormat working;
    if (dated)
        AddOrigin(working, level);
    working.Add(head);
    AddMessage(working, format ? format : "");

    // Leaves room for the line end and a terminating zero.
    constexpr size_t ROOM = LOG_LINE_SIZE - 3;
    va_list again;
    va_copy(again, arguments);
    const int written = _vsnprintf(line, ROOM, working.c_str(), arguments);
    size_t length = static_cast<size_t>(written);
    // -1 means that the text was truncated or that msvcrt cannot convert a character in it. In both cases the second
    // attempt formats as much as possible.
    if (written < 0 || length > ROOM)
        length = FormatConverting(line, ROOM, working.c_str(), again);
    va_end(again);
    if (length == 0 || line[length - 1] != '\n') {
        line[length++] = '\r';
        line[length++] = '\n';
    }
    line[length] = '\0';
    return length;
}

} // namespace vorna
