#include "src/ScheduleDocuments.h"
#include "src/TimerInfo.h"

#include "common/services/XmlAccessor.h"
#include "support/Support.h"

#include <gtest/gtest.h>

namespace {

using namespace vorna;

SYSTEMTIME At(int year, int month, int day, int hour, int minute, int second) {
    SYSTEMTIME time{};
    time.wYear = static_cast<WORD>(year);
    time.wMonth = static_cast<WORD>(month);
    time.wDay = static_cast<WORD>(day);
    time.wHour = static_cast<WORD>(hour);
    time.wMinute = static_cast<WORD>(minute);
    time.wSecond = static_cast<WORD>(second);
    return time;
}

std::string Tabs(size_t count) {
    return std::string(count, '\t');
}

std::string Text(const ElementText& element) {
    return element ? support::Narrow(*element) : "no element";
}

// The text at a path of a document, "-" where nothing is selected.
std::string At(const std::wstring& document, std::wstring_view xpath) {
    XmlAccessor accessor;
    std::wstring text;
    if (accessor.Create() != S_OK || accessor.Load(document) != S_OK)
        return "not a document";
    return accessor.QueryText(xpath, text) == S_OK ? support::Narrow(text) : "-";
}

bool Has(const std::wstring& document, std::wstring_view xpath) {
    XmlAccessor accessor;
    std::wstring text;
    return accessor.Create() == S_OK && accessor.Load(document) == S_OK && accessor.QueryMarkup(xpath, text) == S_OK;
}

class ScheduleDocumentTest : public testing::Test {
  protected:
    static void SetUpTestSuite() { support::RegisterPlatform(); }
};

TEST_F(ScheduleDocumentTest, ScheduleNeedsAStartOrAFrequency) {
    const Duration fiveMinutes{.minutes = 5};
    EXPECT_EQ("<Schedule>" + Tabs(9) + "<StartDateTime>2006-1-5T7:8:9</StartDateTime>" + Tabs(9) +
                  "<Frequency>P0Y0M0DT0H5M0S</Frequency>" + Tabs(8) + "</Schedule>",
              Text(BuildSchedule(fiveMinutes, At(2006, 1, 5, 7, 8, 9))));
    EXPECT_EQ("<Schedule>" + Tabs(9) + "<StartDateTime></StartDateTime>" + Tabs(9) +
                  "<Frequency>P0Y0M0DT0H5M0S</Frequency>" + Tabs(8) + "</Schedule>",
              Text(BuildSchedule(fiveMinutes, {})));
    EXPECT_EQ("no element", Text(BuildSchedule({}, {})));
}

TEST_F(ScheduleDocumentTest, RetryHasTwoForms) {
    const Duration tenSeconds{.seconds = 10};
    EXPECT_EQ("<Retry>" + Tabs(9) + "<RetryFrequency>P0Y0M0DT0H0M10S</RetryFrequency>" + Tabs(9) +
                  "<RetryAttempts>-1</RetryAttempts>" + Tabs(8) + "</Retry>",
              Text(BuildRetry(tenSeconds, -1)));
    EXPECT_EQ("<Retry>" + Tabs(9) + "<RetryAttempts>2147483647</RetryAttempts>" + Tabs(8) + "</Retry>",
              Text(BuildRetry(Duration{}, 2147483647)));
    EXPECT_EQ("no element", Text(BuildRetry(std::nullopt, 0)));
    EXPECT_EQ("no element", Text(BuildRetry(Duration{}, -1)));
}

TEST_F(ScheduleDocumentTest, NotifyHoldsWhatIsKnown) {
    NotifyEntry entry;
    entry.client = MakeClientText(L"QXKELDAN.Vorna.1");
    std::wstring plain = BuildNotify(entry).value_or(L"");
    EXPECT_EQ("COM", At(plain, L"/Notify/@type"));
    EXPECT_EQ("QXKELDAN.Vorna.1", At(plain, L"/Notify/Client"));
    EXPECT_TRUE(Has(plain, L"/Notify/Parameter"));
    EXPECT_EQ("-", At(plain, L"/Notify/Parameter"));
    EXPECT_FALSE(Has(plain, L"/Notify/NotifyTimeout"));
    EXPECT_FALSE(Has(plain, L"/Notify/Retry"));

    entry.type = NOTIFY_EXE;
    entry.client = MakeClientText(L"a", L"b");
    entry.parameter = L"press 7\\A1";
    entry.timeout = Duration{.seconds = 30};
    entry.retryAttempts = 2;
    std::wstring full = BuildNotify(entry).value_or(L"");
    EXPECT_EQ("EXE", At(full, L"/Notify/@type"));
    EXPECT_EQ("a|b", At(full, L"/Notify/Client"));
    EXPECT_EQ("press 7\\A1", At(full, L"/Notify/Parameter"));
    EXPECT_EQ("P0Y0M0DT0H0M30S", At(full, L"/Notify/NotifyTimeout"));
    EXPECT_EQ("2", At(full, L"/Notify/*[last()][self::Retry]/RetryAttempts"));

    entry.type = 5;
    EXPECT_EQ("-", At(BuildNotify(entry).value_or(L""), L"/Notify/@type"));
}

TEST_F(ScheduleDocumentTest, TextOfAClientIsNoMarkup) {
    NotifyEntry entry;
    entry.client = L"a & b";
    entry.parameter = L"1 < 2 > 0 \"'&lt;";
    std::wstring notify = BuildNotify(entry).value_or(L"");
    EXPECT_EQ("a & b", At(notify, L"/Notify/Client"));
    EXPECT_EQ("1 < 2 > 0 \"'&lt;", At(notify, L"/Notify/Parameter"));
}

TEST_F(ScheduleDocumentTest, NotificationInfoKeepsTheOrderOfItsEntries) {
    NotificationInfo info;
    EXPECT_EQ("SEQUENTIAL", At(BuildNotificationInfo(info).value_or(L""), L"/NotificationInfo/@Mode"));
    info.mode = NOTIFICATION_PARALLEL;
    info.entries.resize(2);
    info.entries[0].client = L"first";
    info.entries[1].client = L"second";
    std::wstring text = BuildNotificationInfo(info).value_or(L"");
    EXPECT_EQ("PARALLEL", At(text, L"/NotificationInfo/@Mode"));
    EXPECT_EQ("first", At(text, L"/NotificationInfo/Notify[1]/Client"));
    EXPECT_EQ("second", At(text, L"/NotificationInfo/Notify[2]/Client"));
}

TEST_F(ScheduleDocumentTest, AgingWithoutAnEndHasOnlyItsCount) {
    AgingEntry aging;
    std::wstring endless = BuildAging(aging).value_or(L"");
    EXPECT_FALSE(Has(endless, L"/Aging/EndDateTime"));
    EXPECT_EQ("-1", At(endless, L"/Aging/AgingCount"));

    aging.end = At(2006, 1, 5, 7, 3, 9);
    aging.count = 3;
    aging.notify.emplace().client = L"c";
    std::wstring bounded = BuildAging(aging).value_or(L"");
    EXPECT_EQ("2006-1-5T7:3:9", At(bounded, L"/Aging/EndDateTime"));
    EXPECT_EQ("3", At(bounded, L"/Aging/AgingCount"));
    EXPECT_EQ("c", At(bounded, L"/Aging/Notify/Client"));
}

TEST_F(ScheduleDocumentTest, ScheduleInfoLeavesOutWhatDoesNotExist) {
    std::wstring empty = BuildScheduleInfo({}, {}, std::nullopt, {}).value_or(L"");
    EXPECT_TRUE(Has(empty, L"/ScheduleInfo/*[1][self::NotificationInfo]"));
    std::wstring whole = BuildScheduleInfo({.minutes = 10}, At(2006, 1, 5, 7, 3, 9), AgingEntry{}, {}).value_or(L"");
    EXPECT_TRUE(Has(whole, L"/ScheduleInfo/*[1][self::Schedule]"));
    EXPECT_TRUE(Has(whole, L"/ScheduleInfo/*[2][self::Aging]"));
    EXPECT_TRUE(Has(whole, L"/ScheduleInfo/*[3][self::NotificationInfo]"));
}

// Read as the record that it stands for; all zeros where it is no date.
SYSTEMTIME Date(const std::wstring& document, std::wstring_view xpath) {
    SYSTEMTIME time{};
    if (!ParseDateTime(support::Wide(At(document, xpath)), time))
        return {};
    return time;
}

TEST_F(ScheduleDocumentTest, TimerStartsOnePeriodFromNowAndEndsWithTheAging) {
    TimerInfo timer;
    timer.frequency = {.minutes = 5};
    timer.aging = {.days = 30};
    timer.retries = 3;
    timer.clientCookie = L"http:\\\\host\\A1";
    SYSTEMTIME before = LocalNow();
    std::wstring document = timer.ToXML();
    SYSTEMTIME after = LocalNow();
    SYSTEMTIME start = Date(document, L"/ScheduleInfo/Schedule/StartDateTime");
    SYSTEMTIME end = Date(document, L"/ScheduleInfo/Aging/EndDateTime");
    EXPECT_TRUE(IsLaterOrEqual(start, AddDuration(before, timer.frequency)));
    EXPECT_TRUE(IsLaterOrEqual(AddDuration(after, timer.frequency), start));
    EXPECT_TRUE(IsLaterOrEqual(end, AddDuration(before, timer.aging)));
    EXPECT_TRUE(IsLaterOrEqual(AddDuration(after, timer.aging), end));
    EXPECT_EQ("P0Y0M0DT0H5M0S", At(document, L"/ScheduleInfo/Schedule/Frequency"));
    EXPECT_EQ("-1", At(document, L"/ScheduleInfo/Aging/AgingCount"));
    EXPECT_EQ("COM", At(document, L"/ScheduleInfo/NotificationInfo/Notify/@type"));
    EXPECT_EQ("QXKELDAN.Vorna.1", At(document, L"/ScheduleInfo/NotificationInfo/Notify/Client"));
    EXPECT_EQ("http:\\\\host\\A1", At(document, L"/ScheduleInfo/NotificationInfo/Notify/Parameter"));
    EXPECT_EQ("3", At(document, L"/ScheduleInfo/NotificationInfo/Notify/Retry/RetryAttempts"));
    EXPECT_FALSE(Has(document, L"//NotifyTimeout"));
    // The record is as it was: asking twice does not call twice.
    EXPECT_TRUE(timer.notification.entries.empty());
}

TEST_F(ScheduleDocumentTest, AgingOfZeroHasNoEndAndAgingBeyondAllDatesHasNoDate) {
    TimerInfo timer;
    timer.frequency = {.hours = 1};
    EXPECT_FALSE(Has(timer.ToXML(), L"/ScheduleInfo/Aging"));
    timer.aging = {.years = 9000};
    std::wstring document = timer.ToXML();
    EXPECT_TRUE(Has(document, L"/ScheduleInfo/Aging/AgingCount"));
    EXPECT_FALSE(Has(document, L"/ScheduleInfo/Aging/EndDateTime"));
}

} // namespace
