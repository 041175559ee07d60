// The schedule documents that go to the timer; their tabs are compared once and left out elsewhere.
#include "src/ScheduleDocuments.h"
#include "src/TimerInfo.h"

#include "support/Support.h"

#include <algorithm>

namespace {

using namespace vorna;
using support::At;

std::string Tabs(size_t count) {
    return std::string(count, '\t');
}

std::string Text(const ElementText& element) {
    return element ? support::Narrow(*element) : "no element";
}

std::string WithoutTabs(const ElementText& element) {
    std::string text = Text(element);
    std::erase(text, '\t');
    return text;
}

// The text of the first element of that name, empty if there is none.
std::wstring Value(const std::wstring& document, const std::wstring& name) {
    const size_t begin = document.find(L"<" + name + L">") + name.size() + 2;
    return document.find(L"<" + name + L">") == document.npos
               ? L""
               : document.substr(begin, document.find(L"</", begin) - begin);
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
    EXPECT_EQ("<Schedule><StartDateTime></StartDateTime><Frequency>P0Y0M0DT0H5M0S</Frequency></Schedule>",
              WithoutTabs(BuildSchedule(fiveMinutes, {})));
    EXPECT_EQ("no element", Text(BuildSchedule({}, {})));
}

TEST_F(ScheduleDocumentTest, RetryHasTwoForms) {
    EXPECT_EQ("<Retry>" + Tabs(9) + "<RetryFrequency>P0Y0M0DT0H0M10S</RetryFrequency>" + Tabs(9) +
                  "<RetryAttempts>-1</RetryAttempts>" + Tabs(8) + "</Retry>",
              Text(BuildRetry(Duration{.seconds = 10}, -1)));
    EXPECT_EQ("<Retry>" + Tabs(9) + "<RetryAttempts>2147483647</RetryAttempts>" + Tabs(8) + "</Retry>",
              Text(BuildRetry(Duration{}, 2147483647)));
    EXPECT_EQ("no element", Text(BuildRetry(std::nullopt, 0)));
    EXPECT_EQ("no element", Text(BuildRetry(Duration{}, -1)));
}

TEST_F(ScheduleDocumentTest, NotifyHasOnlyWhatIsKnownAndItsTextsAreEscaped) {
    NotifyEntry entry;
    entry.client = MakeClientText(L"QXKELDAN.Vorna.1");
    EXPECT_EQ("<Notify type=\"COM\"><Client>QXKELDAN.Vorna.1</Client><Parameter/></Notify>",
              WithoutTabs(BuildNotify(entry)));
    entry.type = NOTIFY_EXE;
    entry.client = MakeClientText(L"a & b", L"c");
    entry.parameter = L"press 7\\A1 < 2 > 0 \"'&lt;";
    entry.timeout = Duration{.seconds = 30};
    entry.retryAttempts = 2;
    EXPECT_EQ("<Notify type=\"EXE\"><Client>a &amp; b|c</Client>"
              "<Parameter>press 7\\A1 &lt; 2 &gt; 0 \"'&amp;lt;</Parameter>"
              "<NotifyTimeout>P0Y0M0DT0H0M30S</NotifyTimeout>"
              "<Retry><RetryAttempts>2</RetryAttempts></Retry></Notify>",
              WithoutTabs(BuildNotify(entry)));
    entry.type = 5;
    EXPECT_EQ(0u, Text(BuildNotify(entry)).find("<Notify type=\"\">"));
}

TEST_F(ScheduleDocumentTest, ScheduleInfoHasThePartsThatExistInTheirOrder) {
    EXPECT_EQ("<ScheduleInfo><NotificationInfo Mode=\"SEQUENTIAL\"></NotificationInfo></ScheduleInfo>",
              WithoutTabs(BuildScheduleInfo({}, {}, std::nullopt, {})));
    NotificationInfo info;
    info.mode = NOTIFICATION_PARALLEL;
    info.entries.resize(2);
    info.entries[0].client = L"first";
    info.entries[1].client = L"second";
    AgingEntry aging;
    EXPECT_EQ("<Aging><AgingCount>-1</AgingCount></Aging>", WithoutTabs(BuildAging(aging)));
    aging.end = At(2006, 1, 5, 7, 3, 9);
    aging.count = 3;
    aging.notify = info.entries[0];
    const std::string first = "<Notify type=\"COM\"><Client>first</Client><Parameter/></Notify>";
    EXPECT_EQ("<ScheduleInfo><Schedule><StartDateTime>2006-1-5T7:3:9</StartDateTime>"
              "<Frequency>P0Y0M0DT0H10M0S</Frequency></Schedule>"
              "<Aging><EndDateTime>2006-1-5T7:3:9</EndDateTime><AgingCount>3</AgingCount>" +
                  first + "</Aging><NotificationInfo Mode=\"PARALLEL\">" + first +
                  "<Notify type=\"COM\"><Client>second</Client><Parameter/></Notify></NotificationInfo></ScheduleInfo>",
              WithoutTabs(BuildScheduleInfo({.minutes = 10}, aging.end, aging, info)));
}

TEST_F(ScheduleDocumentTest, TimerStartsOnePeriodFromNowAndEndsWithTheAging) {
    TimerInfo timer;
    timer.frequency = {.minutes = 5};
    timer.aging = {.days = 30};
    timer.retries = 3;
    timer.clientCookie = L"http:\\\\host\\A1";
    const SYSTEMTIME before = LocalNow();
    const std::wstring document = timer.ToXML();
    const SYSTEMTIME after = LocalNow();
    const std::pair<const wchar_t*, Duration> dates[] = {{L"StartDateTime", timer.frequency},
                                                         {L"EndDateTime", timer.aging}};
    for (const auto& [name, later] : dates) {
        SYSTEMTIME date{};
        EXPECT_TRUE(ParseDateTime(Value(document, name), date));
        EXPECT_TRUE(IsLaterOrEqual(date, AddDuration(before, later)));
        EXPECT_TRUE(IsLaterOrEqual(AddDuration(after, later), date));
    }
    EXPECT_EQ(L"P0Y0M0DT0H5M0S", Value(document, L"Frequency"));
    EXPECT_EQ(L"-1", Value(document, L"AgingCount"));
    EXPECT_EQ(L"QXKELDAN.Vorna.1", Value(document, L"Client"));
    EXPECT_EQ(L"http:\\\\host\\A1", Value(document, L"Parameter"));
    EXPECT_EQ(L"3", Value(document, L"RetryAttempts"));
    EXPECT_EQ(document.npos, document.find(L"NotifyTimeout"));
    EXPECT_TRUE(timer.notification.entries.empty()) << "a second call would have two entries";

    timer.aging = {};
    EXPECT_EQ(document.npos, timer.ToXML().find(L"Aging")) << "without an aging there is no end";
    timer.aging = {.years = 9000};
    EXPECT_EQ(L"-1", Value(timer.ToXML(), L"AgingCount"));
    EXPECT_EQ(L"", Value(timer.ToXML(), L"EndDateTime")) << "no date is that late";
}

} // namespace
