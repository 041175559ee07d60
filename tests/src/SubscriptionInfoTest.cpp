#include "src/SubscriptionInfo.h"

#include "common/com/results.h"
#include "common/services/XmlAccessor.h"
#include "support/Support.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

using namespace vorna;

constexpr wchar_t TIMER[] =
    L"<Timer><XMLDataModel><XPath>/host/memory</XPath><XDMPrefixes>xmlns:h='urn:h'</XDMPrefixes>"
    L"</XMLDataModel><Frequency>P0Y0M0DT1H0M0S</Frequency></Timer>";
constexpr wchar_t MODEL[] = L"<XMLDataModel><XPath>/m</XPath><XDMPrefixes>p</XDMPrefixes></XMLDataModel>";

// A document with the parts given; the collect flag is on.
std::wstring Archive(std::wstring_view parts, std::wstring_view id = L"A1") {
    std::wstring text = L"<Archive ID=\"";
    return text.append(id).append(L"\"><Collect>ON</Collect>").append(parts).append(L"</Archive>");
}

std::wstring Managed(std::wstring_view management) {
    std::wstring parts = L"<DataManagement>";
    return Archive(parts.append(management).append(L"</DataManagement>").append(TIMER));
}

class SubscriptionInfoTest : public testing::Test {
  protected:
    static void SetUpTestSuite() { support::RegisterPlatform(); }
};

TEST_F(SubscriptionInfoTest, MinimalTimerDocumentHasTheDefaults) {
    std::wstring text = Archive(TIMER);
    SubscriptionInfo info(text);
    ASSERT_HR(S_OK, info.Status());
    EXPECT_EQ("", support::Narrow(info.ErrorText()));
    EXPECT_EQ(L"A1", info.ArchiveID());
    EXPECT_TRUE(info.Collect());
    EXPECT_EQ((Duration{.years = 65535}), info.LifetimeBeforeRead());
    EXPECT_EQ((Duration{.days = 1}), info.LifetimeAfterRead());
    EXPECT_EQ((Duration{.years = 1}), info.Aging());
    EXPECT_EQ(6u, info.MaxStorageSize());
    EXPECT_FALSE(info.SizeInKilobytes());
    EXPECT_EQ(text, info.SubscriptionText());
    ASSERT_EQ(EventType::Timer, info.EventType());
    ASSERT_TRUE(info.TimerEvent());
    EXPECT_FALSE(info.KROEvent());
    EXPECT_FALSE(info.XDMEvent());
    EXPECT_EQ((DataSource{DataSourceKind::DataModel, L"/host/memory", L"", L"xmlns:h='urn:h'"}),
              info.TimerEvent()->source);
    EXPECT_EQ((Duration{.hours = 1}), info.TimerEvent()->frequency);
    EXPECT_EQ(0, info.TimerEvent()->retries);
    EXPECT_EQ((Duration{.years = 1}), info.TimerEvent()->aging);
}

TEST_F(SubscriptionInfoTest, EveryValueOfTheDocumentIsRead) {
    SubscriptionInfo info(
        L"\xFEFF<?xml version=\"1.0\" encoding=\"utf-8\"?>\r\n<Archive ID=\"Press 7\">\r\n  <Collect>OFF</Collect>\r\n"
        L"  <Aging>P0Y6M0DT0H0M0S</Aging>\r\n  <DataManagement>\r\n"
        L"    <LifetimeBeforeRead>P0Y0M30DT0H0M0S</LifetimeBeforeRead>\r\n"
        L"    <LifetimeAfterRead>P0Y0M0DT2H0M0S</LifetimeAfterRead>\r\n"
        L"    <MaxStorageSize Units=\"KB\">004294967295</MaxStorageSize>\r\n  </DataManagement>\r\n"
        L"  <Timer>\r\n    <XMLDataModel>\r\n      <XPath>/a[b&lt;'&#233;']</XPath>\r\n"
        L"      <XDMPrefixes>xmlns:x='u'</XDMPrefixes>\r\n    </XMLDataModel>\r\n"
        L"    <Frequency>P0Y0M0DT0H0M0S</Frequency>\r\n    <Retries>03</Retries>\r\n  </Timer>\r\n"
        L"  <XDMEvent><Event><XPath>/x</XPath></Event></XDMEvent>\r\n</Archive>");
    ASSERT_HR(S_OK, info.Status());
    EXPECT_EQ(L"Press 7", info.ArchiveID());
    EXPECT_FALSE(info.Collect());
    EXPECT_EQ((Duration{.months = 6}), info.Aging());
    EXPECT_EQ((Duration{.days = 30}), info.LifetimeBeforeRead());
    EXPECT_EQ((Duration{.hours = 2}), info.LifetimeAfterRead());
    EXPECT_EQ(4294967295u, info.MaxStorageSize());
    EXPECT_TRUE(info.SizeInKilobytes());
    // The timer wins over an event.
    ASSERT_EQ(EventType::Timer, info.EventType());
    EXPECT_EQ(L"/a[b<'\u00E9']", info.TimerEvent()->source.xpath);
    EXPECT_TRUE(info.TimerEvent()->frequency.IsZero());
    EXPECT_EQ(3, info.TimerEvent()->retries);
    EXPECT_EQ((Duration{.months = 6}), info.TimerEvent()->aging);
}

std::wstring TimerWith(std::wstring_view content) {
    return Archive(std::wstring(L"<Timer>").append(content).append(L"</Timer>"));
}
std::wstring KROWith(std::wstring_view content) {
    return Archive(std::wstring(L"<KROEvent>").append(content).append(L"</KROEvent>"));
}
std::wstring XDMWith(std::wstring_view content) {
    return Archive(std::wstring(L"<XDMEvent>").append(content).append(L"</XDMEvent>"));
}

TEST_F(SubscriptionInfoTest, FirstFaultIsTheStatusAndSaysWhatIsWrong) {
    const std::wstring model = MODEL;
    const std::wstring frequency = L"<Frequency>P0Y0M0DT1H0M0S</Frequency>";
    const std::wstring event = L"<Event><XPath>/e</XPath></Event>";
    const std::wstring aging = L"<Aging>P1D</Aging>";
    const std::wstring hour = L"P0Y0M0DT1H0M0S";
    // A value that occurs repeatedly is refused, even if the second one is empty.
    const auto twice = [](const std::wstring& name, const std::wstring& value) {
        return L"<" + name + L">" + value + L"</" + name + L"><" + name + L"/>";
    };
    const struct {
        HRESULT status;
        const char* error;
        std::vector<std::wstring> texts;
    } cases[] = {
        {RESULT_XML_MALFORMED,
         "XML not properly formatted",
         {L"", L" \r\n", L"Archive", Archive(TIMER).substr(0, 100), Archive(TIMER) + L"<b/>",
          L"<!DOCTYPE Archive [<!ENTITY e 'A1'>]>" + Archive(TIMER)}},
        {RESULT_ARCHIVE_ID,
         "Subscription Info Error : Invalid Archieve ID",
         {L"<Archive><Collect>ON</Collect></Archive>", Archive(TIMER, L""), Archive(TIMER, L"   "),
          L"<Store ID=\"A1\"><Collect>ON</Collect></Store>"}},
        {RESULT_COLLECT,
         "Subscription Info Error : Data Collect is mandatory field",
         {L"<Archive ID=\"A1\"/>", L"<Archive ID=\"A1\"><Collect/></Archive>"}},
        {RESULT_COLLECT,
         "Subscription Info Error - Some  value other than \"On\" or \"Off\" for collect is found",
         {L"<Archive ID=\"A1\"><Collect>On</Collect></Archive>", L"<Archive ID=\"A1\"><Collect> ON</Collect></Archive>",
          Archive(std::wstring(L"<Collect>OFF</Collect>") + TIMER)}},
        {RESULT_AGING,
         "Subscription Info Error: Invalid Aging duration found",
         {Archive(aging + L"<DataManagement><LifetimeAfterRead>x</LifetimeAfterRead></DataManagement>" + TIMER),
          Archive(twice(L"Aging", hour) + TIMER)}},
        {RESULT_LIFETIME_BEFORE_READ,
         "Subscription Info Error: Invalid  duration for LifeTimeBefore Read",
         {Managed(L"<LifetimeBeforeRead>P-1Y0M0DT0H0M0S</LifetimeBeforeRead>"),
          Managed(twice(L"LifetimeBeforeRead", hour))}},
        {RESULT_LIFETIME_AFTER_READ,
         "Subscription Info Error: Invalid  duration for LifeTimeAfter Read",
         {Managed(L"<LifetimeAfterRead>PT1H</LifetimeAfterRead>"), Managed(twice(L"LifetimeAfterRead", hour))}},
        {RESULT_STORAGE_UNITS,
         "Subscription Info Error: Invalid  units for MaxStorageSize",
         {Managed(L"<MaxStorageSize>10</MaxStorageSize>"), Managed(L"<MaxStorageSize Units=\"\">10</MaxStorageSize>"),
          Managed(L"<MaxStorageSize Units=\"kb\">x</MaxStorageSize>")}},
        {RESULT_STORAGE_SIZE,
         "Subscription Info Error: Invalid  value for MaxStorageSize",
         {Managed(L"<MaxStorageSize Units=\"KB\">+10</MaxStorageSize>"),
          Managed(L"<MaxStorageSize Units=\"KB\"> 10</MaxStorageSize>"),
          Managed(L"<MaxStorageSize Units=\"NUMFILES\">4294967296</MaxStorageSize>"),
          Managed(L"<MaxStorageSize Units=\"NUMFILES\">99999999999999999999999</MaxStorageSize>")}},
        {RESULT_EVENT_TYPE,
         "Invalid event type",
         {Archive(L""), Archive(L"<Timer/>"), Archive(L"<timer>x</timer>"), Archive(L"<Timer/><Timer/>"),
          Archive(twice(L"KROEvent", L"<Name>N</Name><EventPayload/>")), Archive(twice(L"XDMEvent", event + model))}},
        {RESULT_DATA_MODEL,
         "Subscription Info Error : Invalid Timer Event XDM XPath",
         {TimerWith(frequency),
          TimerWith(L"<XMLDataModel><XPath>/a</XPath><XPath>/b</XPath><XDMPrefixes>p</XDMPrefixes></XMLDataModel>" +
                    frequency)}},
        {RESULT_DATA_MODEL,
         "Subscription Info Error : Invalid Timer Event XDM XDMPRefixes",
         {TimerWith(L"<XMLDataModel><XPath>/a</XPath><XDMPrefixes/></XMLDataModel>" + frequency)}},
        {RESULT_TIMER_FREQUENCY,
         "Subscription Info Error : No frequency present in subscription info for timer subscription",
         {TimerWith(model)}},
        {RESULT_TIMER_FREQUENCY,
         "Subscription Info Error : Invalid notification frequency present in subscription info for timer subscription",
         {TimerWith(model + L"<Frequency>PT1H</Frequency>"), TimerWith(model + twice(L"Frequency", hour))}},
        {RESULT_TIMER_RETRIES,
         "Subscription Info Error : Invalid retry in subscription info for timer subscription",
         {TimerWith(model + frequency + L"<Retries>-1</Retries>"),
          TimerWith(model + frequency + L"<Retries>2147483648</Retries>")}},
        {RESULT_KRO_NAME,
         "Subscription Info Error : Invalid KRO Event name in subscription info for KRO Event",
         {KROWith(model), KROWith(twice(L"Name", L"N") + model)}},
        {RESULT_KRO_FILTERS,
         "Subscription Info Error : Invalid Filters Subscription Info Error : Invalid archive type in subscription info for KRO Event subscription",
         {KROWith(L"<Name>N</Name><EventPayload/><Filter><Property Name=\"a\">1<Property/></Property></Filter>")}},
        {RESULT_DATA_MODEL,
         "Subscription Info Error : Invalid KRO Event XDM Path",
         {KROWith(L"<Name>N</Name><XMLDataModel/><EventPayload/>")}},
        {RESULT_DATA_MODEL,
         "Subscription Info Error : Invalid KRO Event XDM XDMPRefixes",
         {KROWith(L"<Name>N</Name><XMLDataModel><XPath>/a</XPath></XMLDataModel>")}},
        {RESULT_KRO_ARCHIVE_TYPE,
         "Subscription Info Error : Invalid archive type in subscription info for KRO Event subscription",
         {KROWith(L"<Name>N</Name>"),
          KROWith(L"<Name>N</Name><EventPayload>" + twice(L"XPath", L"/a") + L"</EventPayload>"),
          KROWith(L"<Name>N</Name><EventPayload>" + twice(L"TransformFile", L"t") + L"</EventPayload>")}},
        {RESULT_XDM_EVENTS,
         "Subscription Info Error: Invalid Events specified in XDM event subscription",
         {XDMWith(model)}},
        {RESULT_XDM_EVENT_XPATH,
         "Subscription Info Error: Invalid Events specified in XDM event subscription",
         {XDMWith(event + L"<Event><Trigger>t</Trigger></Event>" + model),
          XDMWith(L"<Event>" + twice(L"XPath", L"/e") + L"</Event>" + model),
          XDMWith(L"<Event><XPath>/e</XPath>" + twice(L"Trigger", L"1") + L"</Event>" + model),
          XDMWith(L"<Event><XPath>/e</XPath>" + twice(L"Reset", L"1") + L"</Event>" + model)}},
        {RESULT_XDM_XPATH,
         "Subscription Info Error: Invalid XDM path specified in XDM event subscription",
         {XDMWith(event + L"<XMLDataModel><XDMPrefixes>p</XDMPrefixes></XMLDataModel>")}},
        {RESULT_XDM_PREFIXES,
         "Subscription Info Error: Invalid XDM Prefixes specified in XDM event subscription",
         {XDMWith(event + L"<XMLDataModel><XPath>/a</XPath></XMLDataModel>"),
          XDMWith(event + L"<XMLDataModel><XPath>/a</XPath>" + twice(L"XDMPrefixes", L"p") + L"</XMLDataModel>")}},
        {RESULT_XDM_PAYLOAD,
         "Subscription Info Error: Invalid Event Payload specified in XDM event subscription",
         {XDMWith(event), XDMWith(event + L"<EventPayload>" + twice(L"XDMPrefixes", L"p") + L"</EventPayload>")}},
    };
    for (const auto& test : cases)
        for (const std::wstring& text : test.texts) {
            SCOPED_TRACE(support::Narrow(text));
            SubscriptionInfo info(text);
            EXPECT_HR(test.status, info.Status());
            EXPECT_EQ(test.error, support::Narrow(info.ErrorText()));
        }
}

TEST_F(SubscriptionInfoTest, CarriageReturnsReachTheSender) {
    // A literal one is a line end; a reference is part of the value.
    const wchar_t kro[] = L"<Name>a&#13;b</Name><EventPayload><XPath>/c&#13;d</XPath></EventPayload>"
                          L"<Filter><Property Name=\"e&#13;f\">g&#13;\r\nh</Property></Filter>";
    const wchar_t xdm[] = L"<Event><XPath>/a&#13;b</XPath><Trigger>c&#13;d</Trigger><Reset>e&#13;f</Reset></Event>"
                          L"<EventPayload/>";
    for (const bool rewritten : {false, true}) {
        SCOPED_TRACE(rewritten);
        SubscriptionInfo event(KROWith(kro)), model(XDMWith(xdm));
        if (rewritten) {
            ASSERT_HR(S_OK, event.SetAging());
            ASSERT_HR(S_OK, model.SetAging());
            event = SubscriptionInfo(event.SubscriptionText());
            model = SubscriptionInfo(model.SubscriptionText());
        }
        ASSERT_HR(S_OK, event.Status());
        ASSERT_HR(S_OK, model.Status());
        EXPECT_EQ(L"/c\rd", event.KROEvent()->source.xpath);
        const KROEventDocuments documents = event.KROEvent()->ToXML();
        const struct {
            std::wstring document;
            const wchar_t* xpath;
            const wchar_t* value;
        } sent[] = {
            {documents.subscription, L"//EventName", L"a\rb"},  {documents.filter, L"//Name", L"e\rf"},
            {documents.filter, L"//Value", L"g\r\nh"},          {model.XDMEvent()->ToXML(), L"//Event/XPath", L"/a\rb"},
            {model.XDMEvent()->ToXML(), L"//Trigger", L"c\rd"}, {model.XDMEvent()->ToXML(), L"//Reset", L"e\rf"},
        };
        for (const auto& item : sent) {
            XmlAccessor receiver;
            std::wstring value;
            ASSERT_HR(S_OK, receiver.Create());
            ASSERT_HR(S_OK, receiver.Load(item.document));
            EXPECT_HR(S_OK, receiver.QueryText(item.xpath, value));
            EXPECT_EQ(item.value, value) << support::Narrow(item.xpath);
        }
    }
}

TEST_F(SubscriptionInfoTest, ArchiveIDThatWouldBreakAPathOrAnAttributeIsNamed) {
    const std::wstring longest(256, L'x');
    std::vector<std::pair<std::wstring, std::string>> refused = {
        {L"A&quot;1", "The character U+0022 (\") is not allowed in: A\"1"},
        {L"&lt;A>", "The character U+003C (<) is not allowed in: <A>"},
        {L"A&amp;B", "The character U+0026 (&) is not allowed in: A&B"},
        {L"A\\B", "The character U+005C (\\) is not allowed in: A\\B"},
        {L"A&#9;B", "The character U+0009 is not allowed in: A?B"},
        {L"A&#x85;B", "The character U+0085 is not allowed in: A?B"},
        {longest + L"'", "It has 257 characters, more than 256, and begins: "},
    };
    for (const wchar_t other : {L'\'', L'>', L'/', L'[', L']', L'='})
        refused.emplace_back(std::wstring(L"A") + other, "The character U+00");
    for (const auto& [id, error] : refused) {
        SubscriptionInfo info(Archive(TIMER, id));
        EXPECT_HR(RESULT_ARCHIVE_ID, info.Status()) << error;
        EXPECT_TRUE(info.ArchiveID().empty()) << error;
        EXPECT_EQ(0u, support::Narrow(info.ErrorText()).find("Subscription Info Error : Invalid Archieve ID. " + error))
            << support::Narrow(info.ErrorText());
        EXPECT_LE(info.ErrorText().size(), 200u);
    }
    for (const std::wstring& id : {longest, std::wstring(L"  Press 7, hall \u00E9:*?|.. ")})
        EXPECT_HR(S_OK, SubscriptionInfo(Archive(TIMER, id)).Status()) << support::Narrow(id);
}

TEST_F(SubscriptionInfoTest, EventOfTheEventManager) {
    SubscriptionInfo info(KROWith(std::wstring(L"<Name>JobDone</Name>") + MODEL +
                                  L"<Filter>\n <Property Name=\"Severity\">3</Property>\n <Property>x &lt; y</Property>"
                                  L"<Property Name=\"Quiet\"/></Filter>"));
    ASSERT_HR(S_OK, info.Status());
    ASSERT_EQ(EventType::KROEvent, info.EventType());
    ASSERT_TRUE(info.KROEvent());
    EXPECT_EQ(L"JobDone", info.KROEvent()->name);
    EXPECT_EQ((DataSource{DataSourceKind::DataModel, L"/m", L"", L"p"}), info.KROEvent()->source);
    EXPECT_EQ((std::vector<EventFilter>{{L"Severity", L"3"}, {L"", L"x < y"}, {L"Quiet", L""}}),
              info.KROEvent()->filters);
}

TEST_F(SubscriptionInfoTest, EventPayloadIsArchivedWholeOrFiltered) {
    SubscriptionInfo whole(KROWith(L"<Name>JobDone</Name><EventPayload/>"));
    ASSERT_HR(S_OK, whole.Status());
    EXPECT_EQ((DataSource{DataSourceKind::EventPayload, L"", L"", L""}), whole.KROEvent()->source);

    SubscriptionInfo cut(KROWith(L"<Name>JobDone</Name><EventPayload><XPath>/Payload</XPath><TransformFile>C:\\t.xsl"
                                 L"</TransformFile><XDMPrefixes>p</XDMPrefixes></EventPayload>"));
    ASSERT_HR(S_OK, cut.Status());
    EXPECT_EQ((DataSource{DataSourceKind::EventPayload, L"/Payload", L"C:\\t.xsl", L"p"}), cut.KROEvent()->source);
    EXPECT_TRUE(cut.KROEvent()->filters.empty());
}

TEST_F(SubscriptionInfoTest, EventsOfADataModel) {
    SubscriptionInfo info(
        XDMWith(L"<Event><XPath>/a</XPath><Trigger>&gt; 5</Trigger><Reset>&lt; 3</Reset></Event>"
                L"<Event>\n<XPath>/b</XPath>\n</Event><EventPayload><XPath>/Event</XPath></EventPayload>"));
    ASSERT_HR(S_OK, info.Status());
    ASSERT_EQ(EventType::XDMEvent, info.EventType());
    ASSERT_TRUE(info.XDMEvent());
    EXPECT_EQ((std::vector<DataModelEvent>{{L"/a", L"> 5", L"< 3"}, {L"/b", L"", L""}}), info.XDMEvent()->events);
    EXPECT_EQ((DataSource{DataSourceKind::EventPayload, L"/Event", L"", L""}), info.XDMEvent()->source);
    EXPECT_EQ((Duration{.years = 1}), info.XDMEvent()->duration);
}

TEST_F(SubscriptionInfoTest, AgingIsWrittenIntoTheTextAndReadBack) {
    const std::wstring documents[] = {
        Archive(TIMER), // no element of its own yet
        Archive(std::wstring(L"<Aging>P2Y0M0DT0H0M0S</Aging>") + TIMER),
        Archive(std::wstring(L"<Aging/>") + TIMER),
        XDMWith(std::wstring(L"<Event><XPath>/Archive/Aging</XPath></Event>") + MODEL),
    };
    for (const std::wstring& document : documents) {
        for (const Duration& aging : {Duration{}, Duration{.days = 30}, Duration{9999, 11, 30, 23, 59, 59}}) {
            SCOPED_TRACE(support::Narrow(document));
            SubscriptionInfo info(document);
            ASSERT_HR(S_OK, info.SetAging(aging));
            SubscriptionInfo again(info.SubscriptionText());
            ASSERT_HR(S_OK, again.Status());
            for (const SubscriptionInfo* read : {&info, &again}) {
                EXPECT_EQ(aging, read->Aging());
                EXPECT_EQ(aging, read->TimerEvent() ? read->TimerEvent()->aging : read->XDMEvent()->duration);
            }
            // One element, not a second one beside the first.
            size_t first = info.SubscriptionText().find(L"<Aging");
            EXPECT_NE(std::wstring::npos, first);
            EXPECT_EQ(first, info.SubscriptionText().rfind(L"<Aging"));
        }
    }
}

TEST_F(SubscriptionInfoTest, DefaultAgingIsMadeExplicit) {
    SubscriptionInfo info(Archive(TIMER));
    ASSERT_HR(S_OK, info.SetAging());
    EXPECT_NE(std::wstring::npos, info.SubscriptionText().find(L"<Aging>P1Y0M0DT0H0M0S</Aging>"));
}

TEST_F(SubscriptionInfoTest, SettingTheAgingOfATextThatIsNotADocumentFailsAndChangesNothing) {
    SubscriptionInfo info(L"<Archive");
    EXPECT_HR(RESULT_XML_MALFORMED, info.SetAging(Duration{.days = 1}));
    EXPECT_EQ("Failed to load subscription string:<Archive", support::Narrow(info.ErrorText()));
    EXPECT_EQ((Duration{.years = 1}), info.Aging());
    EXPECT_EQ(L"<Archive", info.SubscriptionText());
}

TEST_F(SubscriptionInfoTest, LargeGarbageIsRefused) {
    std::wstring garbage(25'000'000, L'x'); // 50 MB
    EXPECT_HR(RESULT_XML_MALFORMED, SubscriptionInfo(garbage).Status());
    garbage.replace(0, 2, L"<<");
    EXPECT_HR(RESULT_XML_MALFORMED, SubscriptionInfo(garbage).Status());
}

TEST_F(SubscriptionInfoTest, AnyThreadMayParse) {
    HRESULT status = E_FAIL;
    std::thread([&] { status = SubscriptionInfo(Archive(TIMER)).Status(); }).join();
    EXPECT_HR(S_OK, status);
    support::RunInApartment(COINIT_APARTMENTTHREADED, [&] { status = SubscriptionInfo(Archive(TIMER)).Status(); });
    EXPECT_HR(S_OK, status);
}

} // namespace
