#include "common/time/DateTime.h"

#include "support/Support.h"

#include <gtest/gtest.h>

#include <oleauto.h>

namespace {

using support::At;
using vorna::Duration;

std::string Text(const SYSTEMTIME& time) {
    return support::Narrow(vorna::FormatDateTime(time));
}
std::string Text(const Duration& duration) {
    return support::Narrow(vorna::FormatDuration(duration));
}

TEST(DateTime, TextsHaveNoPaddingAndAllZerosHaveNone) {
    EXPECT_EQ("2005-3-7T9:5:0", Text(At(2005, 3, 7, 9, 5, 0)));
    EXPECT_EQ("0-0-0T0:0:1", Text(At(0, 0, 0, 0, 0, 1)));
    SYSTEMTIME onlyUnwrittenFields{};
    onlyUnwrittenFields.wDayOfWeek = 3;
    onlyUnwrittenFields.wMilliseconds = 999;
    EXPECT_EQ("", Text(onlyUnwrittenFields));
    EXPECT_EQ("P0Y0M1DT0H0M0S", Text(Duration{.days = 1}));
    EXPECT_EQ("P65535Y0M0DT0H0M0S", Text(Duration{.years = 65535}));
    EXPECT_EQ("", Text(Duration{}));
}

TEST(DateTime, NowHasNoDayOfWeekAndNoMilliseconds) {
    SYSTEMTIME now = vorna::LocalNow();
    EXPECT_EQ(0, now.wDayOfWeek);
    EXPECT_EQ(0, now.wMilliseconds);
    EXPECT_TRUE(vorna::IsLaterOrEqual(vorna::LocalNow(), now));
}

TEST(DateTime, ParsesDates) {
    const struct {
        const wchar_t* text;
        bool accepted;
        // What the record holds afterwards, refused texts included; the caller's fields are 7777.
        SYSTEMTIME kept;
    } cases[] = {
        {L"2099-1-1T0:0:0", true, At(2099, 1, 1)},
        {L"2099-12-31T23:59:59", true, At(2099, 12, 31, 23, 59, 59)},
        {L"2099-02-31T00:00:00", true, At(2099, 2, 31)},
        {L"  +2099- 3- 4T 5: 6: 7 and more", true, At(2099, 3, 4, 5, 6, 7)},
        {L"2099x-3y-4zT5Z:6:7", true, At(2099, 3, 4, 5, 6, 7)},
        // 65536 + 2099: only the low 16 bits are kept.
        {L"67635-1-1T0:0:0", true, At(2099, 1, 1)},
        // A negative year is a large one, and its sign is the next separator too.
        {L"-3-4T5:6:7", true, At(65533, 3, 4, 5, 6, 7)},
        {L"-3-4-5T6:7:8", true, At(65533, 3, 4, 6, 7, 8)},
        {L"2099-13-01T00:00:00", false, At(2099, 13, 7777, 7777, 7777, 7777)},
        {L"2099-0-1T0:0:0", false, At(2099, 0, 7777, 7777, 7777, 7777)},
        {L"2099-1-32T0:0:0", false, At(2099, 1, 32, 7777, 7777, 7777)},
        {L"2099-1-0T0:0:0", false, At(2099, 1, 0, 7777, 7777, 7777)},
        {L"2099-1-1T24:0:0", false, At(2099, 1, 1, 24, 7777, 7777)},
        {L"2099-1-1T23:60:0", false, At(2099, 1, 1, 23, 60, 7777)},
        {L"2099-1-1T23:59:60", false, At(2099, 1, 1, 23, 59, 60)},
        {L"2099-1-1 23:59:00", false, At(2099, 1, 1, 7777, 7777, 7777)},
        {L"2099", false, At(2099, 7777, 7777, 7777, 7777, 7777)},
        {L"1999-1-1T0:0:0", false, At(1999, 7777, 7777, 7777, 7777, 7777)},
        {L"", false, At(0, 7777, 7777, 7777, 7777, 7777)},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(support::Narrow(test.text));
        SYSTEMTIME time = At(7777, 7777, 7777, 7777, 7777, 7777);
        EXPECT_EQ(test.accepted, vorna::ParseDateTime(test.text, time));
        EXPECT_EQ(Text(test.kept), Text(time));
    }
}

TEST(DateTime, RefusesDatesBeforeTheCurrentYear) {
    int year = vorna::LocalNow().wYear;
    SYSTEMTIME time{};
    EXPECT_FALSE(vorna::ParseDateTime(std::to_wstring(year - 1) + L"-12-31T23:59:59", time));
    EXPECT_TRUE(vorna::ParseDateTime(std::to_wstring(year + 1) + L"-1-1T0:0:0", time));
}

TEST(DateTime, ParsesDurations) {
    const struct {
        const wchar_t* text;
        bool accepted;
        Duration kept; // the caller's fields are 7
    } cases[] = {
        {L"P1Y2M3DT4H5M6S", true, {1, 2, 3, 4, 5, 6}},
        {L"P1Y2M3T4H5M6", true, {1, 2, 3, 4, 5, 6}},
        {L"P0Y0M0DT0H0M0S", true, {}},
        {L"PYMDTHMS", true, {}},
        {L"P 1 Y +2 M 3DT4H5M6S", true, {1, 2, 3, 4, 5, 6}},
        {L"P1year Y2M3DT4H5M6S", true, {1, 2, 3, 4, 5, 6}},
        // Only the last "M" is missing: the seconds are the caller's.
        {L"P1Y2M3DT4H5", true, {1, 2, 3, 4, 5, 7}},
        {L"P65537Y0M0DT0H0M65542S", true, {1, 0, 0, 0, 0, 6}},
        {L"P1Y2M3DT4", false, {1, 2, 3, 4, 7, 65535}},
        {L"PT5M", false, {0, 7, 65535, 65535, 65535, 65535}},
        {L"P-1Y0M0DT0H0M0S", false, {65535, 0, 0, 0, 0, 0}},
        {L"P65535Y0M0DT0H0M0S", false, {65535, 0, 0, 0, 0, 0}},
        {L"P0Y0M0DT0H0M-1S", false, {0, 0, 0, 0, 0, 65535}},
        {L"P-2Y0M0DT0H0M0S", true, {65534, 0, 0, 0, 0, 0}},
        {L" P1Y2M3DT4H5M6S", false, {7, 7, 7, 7, 7, 7}},
        {L"p1Y2M3DT4H5M6S", false, {7, 7, 7, 7, 7, 7}},
        {L"", false, {7, 7, 7, 7, 7, 7}},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(support::Narrow(test.text));
        Duration duration{7, 7, 7, 7, 7, 7};
        EXPECT_EQ(test.accepted, vorna::ParseDuration(test.text, duration));
        EXPECT_EQ(Text(test.kept), Text(duration));
    }
}

TEST(DateTime, AddsDurations) {
    const struct {
        SYSTEMTIME start;
        Duration duration;
        const char* sum;
    } cases[] = {
        {At(2005, 11, 15), {.months = 1}, "2005-12-15T0:0:0"},
        {At(2005, 12, 15), {.months = 1}, "2006-1-15T0:0:0"},
        {At(2005, 1, 15), {.months = 13}, "2006-2-15T0:0:0"},
        {At(2005, 12, 15), {.months = 12}, ""},
        {At(2004, 2, 29, 12), {.years = 4}, "2008-2-29T12:0:0"},
        {At(2005, 12, 31, 23, 59, 59), {.seconds = 1}, "2006-1-1T0:0:0"},
        {At(2005, 1, 1), {.days = 65534, .hours = 65534, .minutes = 65534, .seconds = 65534}, "2192-1-11T20:26:14"},
        // Years that automation dates do not hold.
        {At(2005, 1, 1), {.years = 65535}, ""},
        {At(2005, 1, 1), {.years = 7994}, "9999-1-1T0:0:0"},
        {At(2005, 1, 1), {.years = 7995}, ""},
        {At(9999, 12, 31, 23, 59, 59), {.seconds = 1}, ""},
        {At(99, 12, 31), {.days = 1}, ""},
        {At(5, 1, 1), {.years = 2000}, ""},
        // Before 30 December 1899 the time of day still counts forward.
        {At(1899, 12, 29, 18), {.hours = 3}, "1899-12-29T21:0:0"},
        {At(1899, 12, 29, 18), {.hours = 7}, "1899-12-30T1:0:0"},
        {At(100, 1, 1, 0, 0, 1), {.seconds = 1}, "100-1-1T0:0:2"},
        {SYSTEMTIME{}, {.years = 2030, .months = 5, .days = 9}, ""},
        {At(2005, 0, 1), {.months = 1}, ""},
        {At(2005, 1, 1, 24), {}, ""},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(Text(test.start) + " + " + Text(test.duration));
        EXPECT_EQ(test.sum, Text(vorna::AddDuration(test.start, test.duration)));
    }
}

TEST(DateTime, TheConversionDecidesOnADayBeyondTheMonth) {
    SYSTEMTIME wanted = At(2005, 2, 31);
    SYSTEMTIME decided{};
    double day = 0;
    if (SystemTimeToVariantTime(&wanted, &day))
        VariantTimeToSystemTime(day, &decided);
    EXPECT_EQ(Text(decided), Text(vorna::AddDuration(At(2005, 1, 31), {.months = 1})));
}

TEST(DateTime, EverySecondOfADaySurvivesTheAddition) {
    SYSTEMTIME start = At(2006, 2, 28);
    for (int second = 0; second < 86400; ++second) {
        Duration duration{.hours = static_cast<std::uint16_t>(second / 3600),
                          .seconds = static_cast<std::uint16_t>(second % 3600)};
        SYSTEMTIME expected = At(2006, 2, 28, second / 3600, second / 60 % 60, second % 60);
        SYSTEMTIME sum = vorna::AddDuration(start, duration);
        ASSERT_EQ(Text(expected), Text(sum));
        ASSERT_FALSE(vorna::IsLater(sum, expected) || vorna::IsLater(expected, sum));
        ASSERT_TRUE(vorna::IsLaterOrEqual(sum, expected));
    }
}

TEST(DateTime, ComparesWholeSecondsAndNothingIsLaterThanNoDate) {
    SYSTEMTIME time = At(2006, 1, 5, 7, 3, 9);
    SYSTEMTIME nextSecond = At(2006, 1, 5, 7, 3, 10);
    SYSTEMTIME noDate{};
    EXPECT_TRUE(vorna::IsLater(nextSecond, time));
    EXPECT_FALSE(vorna::IsLaterOrEqual(time, nextSecond));
    EXPECT_TRUE(vorna::IsLater(At(1899, 12, 29, 18), At(1899, 12, 29, 6)));
    for (const SYSTEMTIME& invalid : {noDate, At(2006, 13, 1), At(2006, 0, 1), At(10000, 1, 1), At(6, 1, 1)}) {
        SCOPED_TRACE(Text(invalid));
        EXPECT_FALSE(vorna::IsLater(time, invalid));
        EXPECT_FALSE(vorna::IsLater(invalid, time));
        EXPECT_FALSE(vorna::IsLaterOrEqual(time, invalid));
        EXPECT_FALSE(vorna::IsLaterOrEqual(invalid, time));
        EXPECT_FALSE(vorna::IsLater(invalid, noDate));
        EXPECT_TRUE(vorna::IsLaterOrEqual(invalid, noDate));
        EXPECT_FALSE(vorna::Difference(time, invalid).valid);
    }
}

TEST(DateTime, SpansAreValidWithinTheirRange) {
    vorna::DaySpan span = vorna::MakeDaySpan(1, 12, 720, 43200);
    EXPECT_TRUE(span.valid);
    EXPECT_DOUBLE_EQ(2.5, span.days);
    EXPECT_TRUE(vorna::MakeDaySpan(-3615897, 0, 0, 0).valid);
    EXPECT_FALSE(vorna::MakeDaySpan(3615897, 0, 0, 1).valid);
    span = vorna::Difference(At(1900, 1, 1, 6), At(1899, 12, 29, 18));
    EXPECT_TRUE(span.valid);
    EXPECT_DOUBLE_EQ(2.5, span.days);
}

} // namespace
