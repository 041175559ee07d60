// The documents that go to the event manager and to event access, letter for letter.
#include "src/KROEventInfo.h"
#include "src/XDMEventInfo.h"

#include "support/Support.h"

namespace {

using namespace vorna;

class EventDocumentTest : public testing::Test {
  protected:
    static void SetUpTestSuite() { support::RegisterPlatform(); }
};

std::wstring Filter(std::vector<EventFilter> filters) {
    KROEventInfo info;
    info.filters = std::move(filters);
    return info.ToXML().filter;
}

TEST_F(EventDocumentTest, EventManager) {
    KROEventInfo info;
    EXPECT_EQ(L"<SubscriptionInfo>\t\t\t<EventName></EventName>\t\t\t<ReliabilityOption>Dont care</ReliabilityOption>"
              L"\t\t\t<ClientCookie></ClientCookie>\t\t\t</SubscriptionInfo>",
              info.ToXML().subscription);
    info.name = L"Door <1> & ]]>";
    info.clientCookie = L"a\\b";
    EXPECT_EQ(L"<SubscriptionInfo>\t\t\t<EventName>Door &lt;1&gt; &amp; ]]&gt;</EventName>\t\t\t<ReliabilityOption>"
              L"Dont care</ReliabilityOption>\t\t\t<ClientCookie>a\\b</ClientCookie>\t\t\t</SubscriptionInfo>",
              info.ToXML().subscription);
    EXPECT_EQ(L"<FilterProperties></FilterProperties>", Filter({}));
    EXPECT_EQ(L"<FilterProperties><FilterOn><Name>Severity</Name><Value>3</Value></FilterOn></FilterProperties>",
              Filter({{L"Severity", L"3"}, {L"", L"ignored"}}));
    EXPECT_EQ(L"<FilterProperties><FilterOn><Name>a&lt;b</Name><Value></Value></FilterOn><FilterOn><Name>c</Name>"
              L"<Value>\"&amp;'</Value></FilterOn></FilterProperties>",
              Filter({{L"a<b", L""}, {L"c", L"\"&'"}}));
}

TEST_F(EventDocumentTest, EventAccess) {
    const std::wstring head = L"<EventSubscription ignoreErrors=\"false\"><Notification method=\"kro:IBaseClient\">"
                              L"<Input><URI>progID:QXKELDAN.Vorna.1</URI></Input></Notification>";
    XDMEventInfo info;
    EXPECT_EQ(L"", info.ToXML()) << "nothing to watch";
    info.events = {{L"/G/P", L"", L""}, {L"", L"no xpath", L""}};
    EXPECT_EQ(head + L"<Duration></Duration><Event><XPath>/G/P</XPath></Event></EventSubscription>", info.ToXML());
    info.duration = {.years = 1, .seconds = 5};
    info.clientCookie = L"a\\b";
    info.events = {{L"/G/P[. < 2]", L". > 8 and 'a&b'", L". < 5"}};
    EXPECT_EQ(head + L"<Duration>P1Y0M0DT0H0M5S</Duration><ClientCookie>a\\b</ClientCookie><Event><XPath>/G/P[. &lt; 2]"
                     L"</XPath><Trigger>. &gt; 8 and 'a&amp;b'</Trigger><Reset>. &lt; 5</Reset></Event>"
                     L"</EventSubscription>",
              info.ToXML());
    info.clientCookie = L"\x1";
    EXPECT_EQ(L"", info.ToXML()) << "no document can hold that character";
}

} // namespace
