// How a log line is formatted, and what happens to formats and texts that do not fit.
#include "common/log/LogLine.h"

#include <gmock/gmock.h>

#include <cstdarg>
#include <string>

using namespace vorna;
using testing::HasSubstr;

namespace {

// The line of level 1 between its head and its end.
std::string Line(const char* format, ...) {
    char line[LOG_LINE_SIZE];
    va_list arguments;
    va_start(arguments, format);
    const std::string text(line, FormatLogLine(line, "P::", false, 1, format, arguments));
    va_end(arguments);
    EXPECT_TRUE(text.starts_with("P::") && text.ends_with("\r\n")) << text;
    return text.substr(3, text.size() - 5);
}

std::string DatedLine(const char* format, ...) {
    char line[LOG_LINE_SIZE];
    va_list arguments;
    va_start(arguments, format);
    const std::size_t length = FormatLogLine(line, "P::", true, 1, format, arguments);
    va_end(arguments);
    return {line, length};
}

} // namespace

TEST(LogLineTest, StringsShareTheLine) {
    // (2 * (512 - 2) - 9) / 2 characters each.
    EXPECT_EQ(std::string(505, 'x') + " and " + std::string(505, 'y'),
              Line("%s and %S", std::string(3000, 'x').c_str(), std::wstring(3000, L'y').c_str()));
    // A format of string conversions alone overflows the working format: whole conversions are left out.
    std::string many;
    struct {
        const char* texts[200];
    } arguments;
    for (const char*& text : arguments.texts) {
        many += "%s";
        text = "xyz";
    }
    EXPECT_EQ(std::string(158, 'x'), Line(many.c_str(), arguments));
}

TEST(LogLineTest, LongFormatsAreCutWithAWarning) {
    const std::string warning = "WARNING!!! LogMessage() format string > 512 chars:";
    const auto xs = [](size_t count) { return std::string(count, 'x'); };
    EXPECT_EQ(xs(511), Line(xs(511).c_str()));
    EXPECT_EQ(warning + xs(511), Line(xs(512).c_str()));
    EXPECT_EQ(warning + xs(511), Line((xs(514) + " %s").c_str(), "beyond the limit"));
    // A conversion that crosses the limit is left out.
    EXPECT_EQ(warning + xs(510), Line((xs(510) + "%s").c_str(), "across the limit"));
    // The last "%" is the 512th character: (2 * (512 - 2) - 511) / 2 characters.
    EXPECT_EQ(warning + std::string(254, 'a') + xs(509),
              Line(("%s" + xs(509) + "%s").c_str(), std::string(300, 'a').c_str(), ""));
    EXPECT_EQ(warning + xs(509), Line((xs(509) + "%08X").c_str(), 1));
    EXPECT_EQ(warning + xs(508) + "ab", Line((xs(508) + "%s%dxxxx").c_str(), "ab", 7));
    EXPECT_THAT(DatedLine(xs(600).c_str()), HasSubstr("P::" + warning + xs(511) + "\r\n"));
}

TEST(LogLineTest, NothingLeavesTheLine) {
    const std::string line = DatedLine("%-5000d|", 1);
    EXPECT_EQ(LOG_LINE_SIZE - 1, line.size());
    EXPECT_TRUE(line.ends_with("\r\n"));
    EXPECT_EQ("", Line(""));
}

TEST(LogLineTest, Conversions) {
    EXPECT_EQ("100", Line("100%"));
    EXPECT_EQ("%s 5 a%", Line("%%s %d %s%%", 5, "a"));
    // Characters that do not convert are replaced.
    EXPECT_EQ("before a? ?z 7 1.50 1234567890123 x|   ??|ok ",
              Line("before %S %S %d %.2f %I64d %c|%*S|%s ", L"a\x4E2D", L"\x4E2Dz", 7, 1.5, 1234567890123LL, 'x', 5,
                   L"\x4E2D\x4E2D", "ok"));
    // A text without a terminating zero is read as far as the precision says.
    const wchar_t open[] = {L'\x4E2D', L'b', L'c'};
    EXPECT_EQ("?bc", Line("%.3S", open));
}
