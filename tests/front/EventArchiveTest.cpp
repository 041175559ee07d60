// Archives driven by events: registration with event manager and event access, payloads, aging, and callbacks that are
// forged.
#include "ComponentTest.h"

#include "common/com/results.h"
#include "subscription/Subscription.h"

#include <algorithm>
#include <fstream>
#include <thread>

using namespace vorna;

namespace {

// One kind of event archive, as its documents and its sender name it.
struct Kind {
    const char* name;
    const wchar_t* root;
    const wchar_t* body;
    // What that body archives.
    const wchar_t* archived;
    std::wstring (*trigger)(std::wstring_view source);
    fakes::SenderScript& (*sender)();
    const wchar_t* refused;
    const wchar_t* invalidated;
};

constexpr wchar_t PAYLOAD_SOURCE[] = L"<EventPayload/>";

const Kind KINDS[] = {
    {"event manager", L"Event", L"<Payload><Door><Badge>7</Badge></Door></Payload>",
     L"<Payload><Door><Badge>7</Badge></Door></Payload>",
     [](std::wstring_view source) {
         return L"<KROEvent><Name>Door &amp; &lt;gate&gt;</Name>" + std::wstring(source) +
                L"<Filter><Property Name=\"Floor &lt;2&gt;\">a&amp;b</Property></Filter></KROEvent>";
     },
     []() -> fakes::SenderScript& { return fakes::CurrentScripts().eventManager; },
     L"Failed to subscribe with ZEB's Eventmanager component",
     L"Unregistration with KRO event Failed. Subscription has been invalidated"},
    {"event access", L"EventPayload", L"<Event><Data><V>1</V></Data></Event><Event><Data><V>2</V></Data></Event>",
     L"<EventPayload><Event><Data><V>1</V></Data></Event><Event><Data><V>2</V></Data></Event></EventPayload>",
     [](std::wstring_view source) {
         return L"<XDMEvent><Event><XPath>/G/P</XPath><Trigger>. &lt; 8</Trigger><Reset>. &gt; 9</Reset></Event>" +
                std::wstring(source) + L"</XDMEvent>";
     },
     []() -> fakes::SenderScript& { return fakes::CurrentScripts().eventAccess; },
     L"Failed to subscribe with ZEB's EventAccess component", L"Subscription has been invalidated"},
};

class EventArchive : public ComponentTest {
  protected:
    static std::wstring EventDocument(const Kind& kind, std::wstring_view id, std::wstring_view source = PAYLOAD_SOURCE,
                                      std::wstring_view more = L"", std::wstring_view collect = L"ON") {
        return L"<Archive ID=\"" + std::wstring(id) + L"\"><Collect>" + std::wstring(collect) + L"</Collect>" +
               std::wstring(more) + kind.trigger(source) + L"</Archive>";
    }
    static std::wstring Off(std::wstring_view id) {
        return L"<Archive ID=\"" + std::wstring(id) + L"\"><Collect>OFF</Collect></Archive>";
    }
    Answer Fire(const Kind& kind, std::wstring_view id) { return Deliver(CallBack(kind.root, Record(id), kind.body)); }
    // A subscription whose life of one second is over, with one snapshot from before.
    SubscriptionRecord Aged(std::wstring_view id) {
        const Kind& kind = KINDS[0];
        EXPECT_HR(S_OK, SetData(EventDocument(kind, id)).result);
        EXPECT_HR(S_OK, Fire(kind, id).result);
        EXPECT_HR(S_OK, SetData(EventDocument(kind, id, PAYLOAD_SOURCE, L"<Aging>P0Y0M0DT0H0M1S</Aging>")).result);
        SubscriptionRecord record = Record(id);
        while (!Subscription::HasReachedEnd(EndDate(record)))
            Sleep(10);
        return record;
    }
    static std::wstring EndDate(const SubscriptionRecord& record) {
        std::wstring end;
        EXPECT_HR(S_OK, SubscriptionPersistance().GetEndDateForSubscription(record.vornaId, end));
        return end;
    }
    static bool IsAged(const SubscriptionRecord& record) {
        return SubscriptionPersistance().IsSubscriptionAged(record.vornaId);
    }
    std::wstring StyleSheet(const std::string& body) {
        const std::filesystem::path file = folder_.Path() / ("sheet" + std::to_string(++sheets_) + ".dll");
        std::ofstream(file) << "<xsl:stylesheet version='1.0' xmlns:xsl='http://www.w3.org/1999/XSL/Transform'>" << body
                            << "</xsl:stylesheet>";
        return file.wstring();
    }
    static std::wstring Source(const std::wstring& xpath, const std::wstring& transformFile) {
        return L"<EventPayload><XPath>" + xpath + L"</XPath><TransformFile>" + transformFile +
               L"</TransformFile></EventPayload>";
    }

    fakes::SenderScript& manager_ = scripts_.eventManager;
    int sheets_ = 0;
};

} // namespace

TEST_F(EventArchive, FromTheRegistrationToNothingLeft) {
    for (const Kind& kind : KINDS) {
        SCOPED_TRACE(kind.name);
        fakes::ResetScripts();
        EXPECT_HR(S_OK, SetData(EventDocument(kind, L"A1")).result);
        EXPECT_HR(S_OK, SetData(EventDocument(kind, L"A2",
                                              L"<XMLDataModel><XPath>/D</XPath><XDMPrefixes>p"
                                              L"</XDMPrefixes></XMLDataModel>"))
                            .result);
        EXPECT_EQ(2u, kind.sender().schedules.size());
        EXPECT_NE(std::wstring::npos,
                  kind.sender().schedules[Record(L"A1").subscriptionId].find(Record(L"A1").clientCookie));
        EXPECT_EQ(1u, scripts_.timer.schedules.size()) << "one maintenance timer";
        EXPECT_EQ(0, scripts_.aggregator.calls) << "nothing is gathered before the event";
        EXPECT_EQ(0u, Record(L"A1").snapShots.size());

        EXPECT_HR(S_OK, Fire(kind, L"A1").result);
        const std::wstring document = GetData(L"/Archive[@ID='A1']/*").document;
        EXPECT_NE(std::wstring::npos, document.find(L"\">" + std::wstring(kind.archived) + L"</Snapshot>"))
            << support::Narrow(document);
        EXPECT_HR(S_OK, Fire(kind, L"A2").result);
        EXPECT_EQ(1, scripts_.aggregator.calls);
        EXPECT_NE(std::wstring::npos, GetData(L"/Archive[@ID='A2']/*").document.find(L"<Data><V>1</V></Data>"));

        // Collect ON for what is there renews the aging and nothing else.
        const SubscriptionRecord before = Record(L"A1");
        EXPECT_HR(S_OK,
                  SetData(EventDocument(kind, L"A1", Source(L"/none", L""), L"<Aging>P3Y0M0DT0H0M0S</Aging>")).result);
        const SubscriptionRecord after = Record(L"A1");
        EXPECT_EQ(before.subscriptionId, after.subscriptionId);
        EXPECT_EQ(std::wstring::npos, after.subscriptionText.find(L"/none"));
        EXPECT_NE(std::wstring::npos, after.subscriptionText.find(L"<Aging>P3Y0M0DT0H0M0S</Aging>"));
        EXPECT_EQ(std::to_wstring(LocalNow().wYear + 3), EndDate(after).substr(0, 4));

        EXPECT_HR(S_OK, SetData(Off(L"A1")).result);
        EXPECT_HR(S_OK, SetData(Off(L"A2")).result);
        EXPECT_TRUE(kind.sender().schedules.empty());
        EXPECT_TRUE(scripts_.timer.schedules.empty());
        EXPECT_EQ(1u, FilesLeft()) << "only the persist archive";
    }
}

TEST_F(EventArchive, FailedRegistrationsLeaveNothing) {
    const struct {
        const char* name;
        std::wstring document;
        fakes::SenderScript& sender;
        HRESULT refusal;
        const wchar_t* refused;
        const wchar_t* notStored;
    } senders[] = {
        {"timer", Document(L"A1"), scripts_.timer, RESULT_TIMER_REGISTRATION,
         L"Failed to register with ZEB's timer component", L"Failed to archive subscription information"},
        {"event manager", EventDocument(KINDS[0], L"A1"), scripts_.eventManager, E_INVALIDARG, KINDS[0].refused,
         L"HandlesetDataforKRO Event failed to add subscription"},
        {"event access", EventDocument(KINDS[1], L"A1"), scripts_.eventAccess, E_INVALIDARG, KINDS[1].refused,
         L"Add Subscription Failed for XDM Event"},
    };
    const auto fails = [&](const auto& tried, HRESULT result, const wchar_t* text) {
        const Answer answer = SetData(tried.document);
        EXPECT_HR(result, answer.result);
        EXPECT_EQ(text, answer.text);
        EXPECT_TRUE(tried.sender.schedules.empty());
        EXPECT_TRUE(scripts_.timer.schedules.empty()) << "a maintenance timer without a subscription";
        EXPECT_FALSE(std::filesystem::exists(folder_.Path() / "Archives"));
    };
    for (const auto& tried : senders) {
        SCOPED_TRACE(tried.name);
        fakes::ResetScripts();
        tried.sender.subscribe = {E_INVALIDARG};
        fails(tried, tried.refusal, tried.refused);
        for (const std::wstring_view stream : {L"VornaPersist", L"_Subscription"}) {
            scripts_.archive.answer = [stream](auto& operation, auto& name) {
                return operation == L"add" && name.ends_with(stream) ? E_ACCESSDENIED : S_OK;
            };
            fails(tried, E_ACCESSDENIED, tried.notStored);
        }
    }
    for (const wchar_t* answered : {L"", L"<SubscriptionResults/>", L"<SubscriptionResults><SubscriptionID>"}) {
        fakes::ResetScripts();
        scripts_.eventAccess.answer = answered;
        ExpectAnswer(SetData(EventDocument(KINDS[1], L"A1")), E_UNEXPECTED,
                     L"Invalid subcription ticket returned from Event access Subscription");
    }
}

TEST_F(EventArchive, FailedModificationIsFollowedByAFreshSubscription) {
    for (const Kind& kind : KINDS) {
        SCOPED_TRACE(kind.name);
        fakes::ResetScripts();
        ASSERT_HR(S_OK, SetData(EventDocument(kind, L"A1")).result);
        ASSERT_HR(S_OK, Fire(kind, L"A1").result);
        for (HRESULT refusal : {PLATFORM_ID_UNKNOWN, PLATFORM_ID_EXPIRED, E_ACCESSDENIED}) {
            const SubscriptionRecord before = Record(L"A1");
            kind.sender().modify = {refusal};
            EXPECT_HR(S_OK, SetData(EventDocument(kind, L"A1")).result);
            const SubscriptionRecord after = Record(L"A1");
            EXPECT_NE(before.subscriptionId, after.subscriptionId);
            EXPECT_EQ(1u, after.snapShots.size());
            ASSERT_EQ(1u, kind.sender().schedules.size()) << "the old registration does not go on beside the new one";
            EXPECT_EQ(after.subscriptionId, kind.sender().schedules.begin()->first);
        }
        EXPECT_NE(std::wstring::npos, GetData(L"/Archive[@ID='A1']/*").document.find(kind.archived));
        kind.sender().modify = {E_ACCESSDENIED};
        kind.sender().subscribe = {E_OUTOFMEMORY};
        ExpectAnswer(SetData(EventDocument(kind, L"A1")), E_OUTOFMEMORY, kind.refused);
        EXPECT_HR(S_OK, Fire(kind, L"A1").result) << "the earlier registration still works";

        kind.sender().unsubscribe = {E_ACCESSDENIED};
        ExpectAnswer(SetData(Off(L"A1")), E_ACCESSDENIED, kind.invalidated);
        EXPECT_HR(RESULT_NO_SUBSCRIPTION, GetData(L"/Archive[@ID='A1']/*").result);
    }
}

TEST_F(EventArchive, TwoRenewalsAtOnceKeepEverySnapshot) {
    ASSERT_HR(S_OK, SetData(EventDocument(KINDS[0], L"A1")).result);
    ASSERT_HR(S_OK, Fire(KINDS[0], L"A1").result);
    manager_.schedules.clear();
    std::thread other;
    manager_.onSubscribed = [&](const std::wstring&) {
        // While the first renewal is between the event manager's answer and its record.
        if (!other.joinable())
            other = std::thread([&] { EXPECT_HR(S_OK, SetData(EventDocument(KINDS[0], L"A1")).result); });
    };
    EXPECT_HR(S_OK, SetData(EventDocument(KINDS[0], L"A1")).result);
    other.join();
    manager_.onSubscribed = nullptr;
    const SubscriptionRecord record = Record(L"A1");
    EXPECT_EQ(1u, record.snapShots.size());
    ASSERT_EQ(1u, manager_.schedules.size());
    EXPECT_EQ(record.subscriptionId, manager_.schedules.begin()->first);
    EXPECT_NE(std::wstring::npos, GetData(L"/Archive[@ID='A1']/*").document.find(KINDS[0].archived));
    EXPECT_EQ(3u, FilesLeft()) << "one persist, one configuration, one snapshot archive";
}

TEST_F(EventArchive, PayloadsAreFilteredAndTransformed) {
    const std::wstring body = L"<Payload><SubscriptionID>other</SubscriptionID><ClientCookie>other</ClientCookie>"
                              L"<Door n='1'><Badge>7</Badge></Door><Door n='2'/></Payload>";
    const std::wstring badge = StyleSheet("<xsl:template match='/'><Name><xsl:value-of select='//Badge'/></Name>"
                                          "</xsl:template>");
    const std::wstring script =
        StyleSheet("<msxsl:script xmlns:msxsl='urn:schemas-microsoft-com:xslt' implements-prefix='u' xmlns:u='urn:u'>"
                   "function f(){return 1;}</msxsl:script><xsl:template match='/'><X/></xsl:template>");
    const std::wstring reaching =
        StyleSheet("<xsl:template match='/'><X><xsl:copy-of select=\"document('http://x/')\"/>"
                   "</X></xsl:template>");
    const std::wstring text = StyleSheet("<xsl:output method='text'/><xsl:template match='/'>no markup</xsl:template>");
    const std::wstring missing = (folder_.Path() / "missing.xslt").wstring();
    const struct {
        std::wstring source;
        const wchar_t* archived;
    } cases[] = {
        {Source(L"/Payload/Door/Badge", L""), L"<Payload><Door n=\"1\"><Badge>7</Badge></Door></Payload>"},
        {Source(L"/Payload/None", L""), L"<Payload><SubscriptionID>other</SubscriptionID>"},
        {Source(L"][", L""), L"<Payload><SubscriptionID>other</SubscriptionID>"},
        {Source(L"", badge), L"\"><Name>7</Name></Snapshot>"},
        {Source(L"/Payload/Door[@n='2']", badge), L"\"><Name/></Snapshot>"},
        {Source(L"//Badge", script), L"<Payload><Door n=\"1\"><Badge>7</Badge></Door></Payload>"},
        {Source(L"//Badge", reaching), L"<Payload><Door n=\"1\"><Badge>7</Badge></Door></Payload>"},
        {Source(L"//Badge", missing), L"<Payload><Door n=\"1\"><Badge>7</Badge></Door></Payload>"},
    };
    for (const auto& item : cases) {
        SCOPED_TRACE(support::Narrow(item.source));
        EXPECT_HR(S_OK, SetData(EventDocument(KINDS[0], L"A1", item.source)).result);
        EXPECT_HR(S_OK, Deliver(CallBack(L"Event", Record(L"A1"), body)).result);
        std::wstring document = GetData(L"/Archive[@ID='A1']/*").document;
        std::replace(document.begin(), document.end(), L'\'', L'"');
        EXPECT_NE(std::wstring::npos, document.find(item.archived)) << support::Narrow(document);
        EXPECT_HR(S_OK, SetData(Off(L"A1")).result);
    }
    // Output that is not a document is archived as it is, where no XPath finds it.
    EXPECT_HR(S_OK, SetData(EventDocument(KINDS[0], L"A1", Source(L"//Badge", text))).result);
    EXPECT_HR(S_OK, Deliver(CallBack(L"Event", Record(L"A1"), body)).result);
    std::wstring stored;
    const SubscriptionRecord record = Record(L"A1");
    EXPECT_HR(S_OK, ReadStream(record.Archive().SnapShotsPath(), record.snapShots.at(0).id, stored));
    EXPECT_EQ(L"no markup", stored);
    ExpectAnswer(GetData(L"/Archive[@ID='A1']/*"), E_FAIL, L"Could not find the required data in the archive");
}

TEST_F(EventArchive, ForgedAndUnknownCallBacksAreRefused) {
    ASSERT_HR(S_OK, SetData(EventDocument(KINDS[0], L"A1")).result);
    ASSERT_HR(S_OK, SetData(EventDocument(KINDS[1], L"A2")).result);
    const SubscriptionRecord event = Record(L"A1");
    SubscriptionRecord forged = event;
    forged.clientCookie = Record(L"A2").clientCookie;
    SubscriptionRecord unknown = event;
    unknown.subscriptionId = L"never-made";
    const std::wstring payload = KINDS[0].body;
    const struct {
        const char* name;
        std::wstring document;
        HRESULT result;
        const wchar_t* text;
    } cases[] = {
        {"another subscription's cookie", CallBack(L"Event", forged, payload), E_ACCESSDENIED,
         L"The client cookie of the Call back XML is not the subscription's"},
        {"another sender's root", CallBack(L"TimerEvent", event), E_ACCESSDENIED,
         L"The root of the Call back XML is not that of the subscription's sender"},
        {"no payload", CallBack(L"Event", event), E_FAIL, L"Subscription->HandleCallBack returned failure"},
        {"a document type", L"<!DOCTYPE Event [<!ENTITY e 'x'>]>" + CallBack(L"Event", event, payload),
         RESULT_XML_MALFORMED, L"Failed to Get the root of call back XML"},
        {"never registered", CallBack(L"Event", unknown, payload), E_ACCESSDENIED,
         L"Unsubscription with Event Manager failed"},
        {"never watched", CallBack(L"EventPayload", unknown, payload), E_ACCESSDENIED,
         L"Unsubscription with Event Access Failed"},
    };
    manager_.unsubscribe = scripts_.eventAccess.unsubscribe = {E_ACCESSDENIED};
    for (const auto& item : cases) {
        SCOPED_TRACE(item.name);
        ExpectAnswer(Deliver(item.document), item.result, item.text);
    }
    EXPECT_EQ(0u, Record(L"A1").snapShots.size());
    EXPECT_EQ(1u, manager_.schedules.size());
    EXPECT_EQ(1u, scripts_.eventAccess.schedules.size());
    // Once ended, a late callback ends only what is left of its own registration.
    EXPECT_HR(S_OK, SetData(Off(L"A1")).result);
    manager_.schedules[event.subscriptionId] = L"";
    EXPECT_HR(S_OK, Deliver(CallBack(L"Event", event, payload)).result);
    EXPECT_TRUE(manager_.schedules.empty());
}

TEST_F(EventArchive, AgedSubscriptionsAreEndedKeptAndRevived) {
    const struct {
        const char* name;
        std::function<Answer(const SubscriptionRecord&)> end;
    } cases[] = {
        {"by the next callback",
         [&](const SubscriptionRecord& record) { return Deliver(CallBack(L"Event", record, KINDS[0].body)); }},
        {"by the maintenance", [&](const SubscriptionRecord&) { return MaintenanceTick(); }},
    };
    for (const auto& item : cases) {
        SCOPED_TRACE(item.name);
        const SubscriptionRecord record = Aged(L"A1");
        // Refused at first: it is tried again, and nothing is marked before.
        manager_.unsubscribe = {E_ACCESSDENIED};
        EXPECT_HR(S_OK, item.end(record).result);
        EXPECT_FALSE(IsAged(record));
        EXPECT_HR(S_OK, item.end(record).result);
        EXPECT_TRUE(IsAged(record));
        EXPECT_TRUE(manager_.schedules.empty());
        // Replayed, and the next pass: nothing more happens.
        EXPECT_HR(S_OK, item.end(record).result);
        EXPECT_HR(S_OK, MaintenanceTick().result);
        EXPECT_EQ(1u, Record(L"A1").snapShots.size()) << "no capture after the end, and none lost";
        EXPECT_NE(std::wstring::npos, GetData(L"/Archive[@ID='A1']/*").document.find(KINDS[0].archived));

        EXPECT_HR(S_OK, SetData(EventDocument(KINDS[0], L"A1")).result);
        EXPECT_FALSE(IsAged(record));
        EXPECT_EQ(1u, manager_.schedules.count(Record(L"A1").subscriptionId));
        EXPECT_EQ(1u, Record(L"A1").snapShots.size());
        EXPECT_HR(S_OK, Fire(KINDS[0], L"A1").result);
        EXPECT_HR(S_OK, SetData(Off(L"A1")).result);
    }
}

TEST_F(EventArchive, SubscriptionRenewedWhileItEndsGoesOn) {
    const SubscriptionRecord record = Aged(L"A1");
    manager_.onUnsubscribed = [&] {
        // The registration is gone already, the mark is not set yet.
        manager_.schedules[record.subscriptionId] = L"";
        EXPECT_HR(S_OK, SetData(EventDocument(KINDS[0], L"A1")).result);
        manager_.schedules.clear();
    };
    EXPECT_HR(S_OK, MaintenanceTick().result);
    EXPECT_FALSE(IsAged(record));
    EXPECT_EQ(1u, manager_.schedules.count(Record(L"A1").subscriptionId));
    EXPECT_EQ(1u, Record(L"A1").snapShots.size());
}

TEST_F(EventArchive, MaintenanceRestoresWhatTheEventManagerLost) {
    ASSERT_HR(S_OK, SetData(EventDocument(KINDS[0], L"A1")).result);
    ASSERT_HR(S_OK, SetData(EventDocument(KINDS[1], L"A2")).result);
    ASSERT_HR(S_OK, Fire(KINDS[0], L"A1").result);
    const SubscriptionRecord before = Record(L"A1");
    const std::wstring endDate = EndDate(before);
    EXPECT_HR(S_OK, MaintenanceTick().result);
    EXPECT_EQ(before.subscriptionId, Record(L"A1").subscriptionId) << "what is there stays";
    manager_.schedules.clear();
    manager_.subscribe = {E_OUTOFMEMORY};
    EXPECT_HR(S_OK, MaintenanceTick().result);
    EXPECT_EQ(before.subscriptionId, Record(L"A1").subscriptionId);
    EXPECT_HR(S_OK, MaintenanceTick().result);
    const SubscriptionRecord after = Record(L"A1");
    EXPECT_EQ(1u, manager_.schedules.count(after.subscriptionId));
    EXPECT_EQ(endDate, EndDate(after));
    EXPECT_EQ(1u, after.snapShots.size());
    EXPECT_HR(S_OK, Fire(KINDS[0], L"A1").result);
    EXPECT_EQ(1u, scripts_.eventAccess.schedules.size()) << "event access is left alone";
}
