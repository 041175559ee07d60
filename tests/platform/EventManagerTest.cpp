// The event manager of the real host process, over COM.
#include "QXKeldan.h"
#include "common/com/results.h"
#include "common/services/platformservices.h"
#include "platform/HostTest.h"

namespace {

using vorna::bstr;
using vorna::com_ptr;

constexpr HRESULT QUOTA = HRESULT_FROM_WIN32(ERROR_NOT_ENOUGH_QUOTA);
constexpr wchar_t NO_FILTER[] = L"<FilterProperties/>";
constexpr std::size_t WAITING_AT_MOST = 256;

std::wstring Info(const std::wstring& name, const std::wstring& cookie = L"c") {
    return L"<SubscriptionInfo>\t<EventName>" + name + L"</EventName>\t<ClientCookie>" + cookie +
           L"</ClientCookie>\t</SubscriptionInfo>";
}

std::wstring Callback(const std::wstring& id, const std::wstring& cookie, const std::wstring& payload) {
    return L"<Event><SubscriptionID>" + id + L"</SubscriptionID><ClientCookie>" + cookie + L"</ClientCookie><Payload>" +
           payload + L"</Payload></Event>";
}

class EventManager : public ServiceTest<IZEBEventManager> {
  protected:
    EventManager() : ServiceTest(vorna::PROGID_EVENT_MANAGER) {}
    HRESULT TrySubscribe(const std::wstring& info, const std::wstring& filter, const std::wstring& receiver, bstr& id) {
        return service_->Subscribe(bstr(info).get(), bstr(filter).get(), bstr(receiver).get(), id.put());
    }
    std::wstring Subscribe(const std::wstring& info, const std::wstring& filter = NO_FILTER) {
        bstr id;
        EXPECT_HR(S_OK, TrySubscribe(info, filter, std::wstring(L"progID:") + RECEIVER, id));
        return id.str();
    }
    HRESULT Modify(const std::wstring& id, const std::wstring& info, const std::wstring& filter = NO_FILTER) {
        return service_->Modify(bstr(id).get(), bstr(info).get(), bstr(filter).get());
    }
    HRESULT Unsubscribe(const std::wstring& id) { return service_->Unsubscribe(bstr(id).get()); }
    HRESULT TryRaise(const std::wstring& name, const std::wstring& properties, const std::wstring& payload,
                     long& count) {
        return service_->Raise(bstr(name).get(), bstr(properties).get(), bstr(payload).get(), &count);
    }
    // Returns the number of subscriptions that the event was queued for.
    long Raise(const std::wstring& name, const std::wstring& properties = {}, const std::wstring& payload = {}) {
        long count = -1;
        EXPECT_HR(S_OK, TryRaise(name, properties, payload, count));
        return count;
    }
};

TEST_F(EventManager, DeliversEventsInOrderAndUnchanged) {
    const std::wstring id = Subscribe(Info(L" a&lt;b&amp;\"c\" ", L" 5 &lt; 6 &amp; 7 "));
    const std::wstring other = Subscribe(Info(L"other"));
    EXPECT_EQ(0, Raise(L"a<b&\"c\""));
    const std::wstring name = L" a<b&\"c\" ";
    struct {
        std::wstring payload;
        std::wstring delivered;
    } const cases[] = {
        {L"", L""},
        {L"<?xml version=\"1.0\" encoding=\"utf-16\"?>\n<a b='1'>x &amp; y<!-- c --><d/></a>\n",
         L"<a b='1'>x &amp; y<!-- c --><d/></a>\n"},
        {L"<p:a xmlns:p=\"u\"><![CDATA[<]]></p:a>", L"<p:a xmlns:p=\"u\"><![CDATA[<]]></p:a>"},
        {L"<a>" + std::wstring(1'000'000, L'\x4E2D') + L"</a>", L"<a>" + std::wstring(1'000'000, L'\x4E2D') + L"</a>"},
    };
    for (const auto& one : cases)
        EXPECT_EQ(1, Raise(name, L"", one.payload));
    ASSERT_TRUE(inbox.WaitFor(id, std::size(cases)));
    const auto came = inbox.Of(id);
    for (std::size_t i = 0; i < std::size(cases); ++i)
        EXPECT_TRUE(Callback(id, L" 5 &lt; 6 &amp; 7 ", cases[i].delivered) == came[i])
            << i << ": " << support::Narrow(came[i].substr(0, 300));
    EXPECT_EQ(0u, inbox.Count(other));
}

TEST_F(EventManager, FiltersPassEventsThatHaveEveryValue) {
    constexpr wchar_t A1[] = L"<FilterOn><Name>a</Name><Value>1</Value></FilterOn>";
    constexpr wchar_t B2[] = L"<FilterOn><Value>2</Value><Name>b</Name></FilterOn>";
    constexpr wchar_t MARKUP[] = L"<FilterOn><Name>a&amp;&lt;</Name><Value>&quot;x' &gt;</Value></FilterOn>";
    struct {
        const char* what;
        std::wstring filters;
        std::wstring properties;
        long passes;
    } const cases[] = {
        {"no filter, no properties", L"", L"", 1},
        {"the value", A1, L"<Property Name='a'>1</Property>", 1},
        {"another value", A1, L"<Property Name='a'>2</Property>", 0},
        {"the value with a blank", A1, L"<Property Name='a'>1 </Property>", 0},
        {"the name in another case", A1, L"<Property Name='A'>1</Property>", 0},
        {"one of two", std::wstring(A1) + B2, L"<Property Name='a'>1</Property>", 0},
        {"both of two", std::wstring(A1) + B2, L"<Property Name='b'>2</Property><Property Name='a'>1</Property>", 1},
        {"a property given twice", A1, L"<Property Name='a'>2</Property><Property Name='a'>1</Property>", 1},
        {"two values wanted", std::wstring(A1) + L"<FilterOn><Name>a</Name><Value>2</Value></FilterOn>",
         L"<Property Name='a'>2</Property><Property Name='a'>1</Property>", 1},
        {"no name", L"<FilterOn><Value>1</Value></FilterOn>", L"", 1},
        {"no value", L"<FilterOn><Name>a</Name></FilterOn>", L"<Property Name='a'/>", 1},
        {"markup", MARKUP, L"<Property Name='a&amp;&lt;'>\"x' &gt;</Property>", 1},
    };
    for (const auto& one : cases) {
        const std::wstring id = Subscribe(Info(L"e"), L"<FilterProperties>" + one.filters + L"</FilterProperties>");
        const std::wstring properties =
            one.properties.empty() ? L"" : L"<EventProperties>" + one.properties + L"</EventProperties>";
        EXPECT_EQ(one.passes, Raise(L"e", properties)) << one.what;
        EXPECT_HR(S_OK, Unsubscribe(id));
    }
}

TEST_F(EventManager, ModificationDoesNotChangeQueuedEvents) {
    const std::wstring id = Subscribe(Info(L"old", L"first"));
    inbox.FailNext(1);
    EXPECT_EQ(1, Raise(L"old"));
    ASSERT_TRUE(inbox.WaitFor(id, 1));
    EXPECT_HR(S_OK,
              Modify(id, Info(L"new", L"second"),
                     L"<FilterProperties><FilterOn><Name>n</Name><Value>v</Value></FilterOn></FilterProperties>"));
    EXPECT_EQ(0, Raise(L"old"));
    EXPECT_EQ(0, Raise(L"new"));
    EXPECT_EQ(1, Raise(L"new", L"<EventProperties><Property Name='n'>v</Property></EventProperties>"));
    ASSERT_TRUE(inbox.WaitFor(id, 3));
    const auto came = inbox.Of(id);
    EXPECT_EQ(Callback(id, L"first", L""), came[1]);
    EXPECT_EQ(Callback(id, L"second", L""), came[2]);
}

TEST_F(EventManager, UnsubscribingDropsQueuedEvents) {
    const std::wstring id = Subscribe(Info(L"a"));
    const std::wstring later = Subscribe(Info(L"b"));
    inbox.FailNext(1);
    EXPECT_EQ(1, Raise(L"a"));
    ASSERT_TRUE(inbox.WaitFor(id, 1));
    inbox.FailNext(1);
    EXPECT_EQ(1, Raise(L"b"));
    ASSERT_TRUE(inbox.WaitFor(later, 1));
    EXPECT_HR(S_OK, Unsubscribe(id));
    EXPECT_EQ(0, Raise(L"a"));
    // Its second attempt comes after the time of the dropped one.
    ASSERT_TRUE(inbox.WaitFor(later, 2));
    EXPECT_EQ(1u, inbox.Count(id));
    EXPECT_HR(vorna::PLATFORM_ID_UNKNOWN, Unsubscribe(id));
    EXPECT_HR(vorna::PLATFORM_ID_UNKNOWN, Modify(id, Info(L"a")));
}

TEST_F(EventManager, KillBetweenRaiseAndDeliveryLosesNothing) {
    const std::wstring id = Subscribe(Info(L"e"), L"<FilterProperties><FilterOn><Name>n</Name><Value>v</Value>"
                                                  L"</FilterOn></FilterProperties>");
    const std::wstring ended = Subscribe(Info(L"e"));
    const std::wstring properties = L"<EventProperties><Property Name='n'>v</Property></EventProperties>";
    inbox.FailNext(1000);
    for (const wchar_t* payload : {L"<p>1</p>", L"<p>2</p>", L"<p>3</p>"})
        EXPECT_EQ(2, Raise(L"e", properties, payload));
    EXPECT_HR(S_OK, Unsubscribe(ended));
    // Killed immediately after the call has returned.
    EXPECT_EQ(1, Raise(L"e", properties, L"<p>4</p>"));
    KillHost();
    inbox.Clear();
    ASSERT_NO_FATAL_FAILURE(Connect());
    EXPECT_EQ(1, Raise(L"e", properties, L"<p>5</p>"));
    EXPECT_EQ(0, Raise(L"e"));
    ASSERT_TRUE(inbox.WaitFor(id, 5));
    const auto came = inbox.Of(id);
    for (std::size_t i = 0; i < 5; ++i)
        EXPECT_EQ(Callback(id, L"c", L"<p>" + std::to_wstring(i + 1) + L"</p>"), came[i]);
    EXPECT_EQ(0u, inbox.Count(ended));
}

TEST_F(EventManager, KilledHostsLeaveNothingBehindForClassesThatWereNotUsed) {
    for (int i = 0; i < 4; ++i) {
        KillHost();
        com_ptr<IZEBTimer> timer;
        ASSERT_NO_FATAL_FAILURE(ConnectTo(vorna::PROGID_TIMER, timer));
    }
    // The first attempt may still meet a class object that the host has not used up yet.
    HRESULT result = E_FAIL;
    for (int attempt = 0; attempt < 2 && FAILED(result); ++attempt)
        result = CoCreateInstance(__uuidof(::ZEBEventManager), nullptr, CLSCTX_ALL, __uuidof(IZEBEventManager),
                                  service_.put_void());
    EXPECT_HR(S_OK, result);
}

TEST_F(EventManager, FullQueueIsReportedToTheCaller) {
    Subscribe(Info(L"e"));
    inbox.FailNext(1'000'000);
    for (std::size_t i = 0; i < WAITING_AT_MOST; ++i)
        ASSERT_EQ(1, Raise(L"e"));
    Subscribe(Info(L"e"));
    long count = -1;
    EXPECT_HR(QUOTA, TryRaise(L"e", L"", L"", count));
    EXPECT_EQ(1, count);
}

TEST_F(EventManager, RefusesInvalidDocumentsWithTheirCodes) {
    const std::wstring id = Subscribe(Info(L"e"));
    const std::wstring good = Info(L"e");
    const std::wstring receiver = std::wstring(L"progID:") + RECEIVER;
    constexpr HRESULT MALFORMED = vorna::RESULT_XML_MALFORMED;
    struct {
        std::wstring info;
        std::wstring filter;
        HRESULT result;
    } const registrations[] = {
        {L"", NO_FILTER, MALFORMED},
        {L"<!DOCTYPE SubscriptionInfo>" + good, NO_FILTER, MALFORMED},
        {L"<Other><EventName>e</EventName></Other>", NO_FILTER, E_INVALIDARG},
        {Info(L""), NO_FILTER, E_INVALIDARG},
        {Info(L"e</EventName><EventName>f"), NO_FILTER, E_INVALIDARG},
        {good, L"", MALFORMED},
        {good, L"<FilterProperties><FilterOn></FilterProperties>", MALFORMED},
        {good, L"<Filter/>", E_INVALIDARG},
        {good, L"<FilterProperties><FilterOn><Name>a</Name><Name>b</Name></FilterOn></FilterProperties>", E_INVALIDARG},
    };
    for (const auto& one : registrations) {
        bstr none;
        EXPECT_HR(one.result, TrySubscribe(one.info, one.filter, receiver, none)) << support::Narrow(one.info);
        EXPECT_EQ(nullptr, none.get());
        EXPECT_HR(one.result, Modify(id, one.info, one.filter)) << support::Narrow(one.filter);
    }
    for (const wchar_t* bad :
         {L"", L"progID:", L"QXKELDAN.Vorna", L"progid:QXKELDAN.Vorna", L"progID:a b", L"progID:a\\b"}) {
        bstr none;
        EXPECT_HR(E_INVALIDARG, TrySubscribe(good, NO_FILTER, bad, none)) << support::Narrow(bad);
    }
    struct {
        std::wstring name;
        std::wstring properties;
        std::wstring payload;
        HRESULT result;
    } const raises[] = {
        {L"", L"", L"", E_INVALIDARG},
        {L"e", L"<EventProperties>", L"", MALFORMED},
        {L"e", L"<Properties/>", L"", E_INVALIDARG},
        {L"e", L"<EventProperties><Property Name=''>1</Property></EventProperties>", L"", E_INVALIDARG},
        {L"e", L"", L"text", MALFORMED},
        {L"e", L"", L"</Payload></Event><Event><Payload>", MALFORMED},
        {L"e", L"", L"<!DOCTYPE a><a/>", MALFORMED},
        {L"e", L"", support::Repeated(255, L"<a>") + support::Repeated(255, L"</a>"), MALFORMED},
        {L"e", L"", L"<a>" + std::wstring(8'388'608, L'x') + L"</a>", HRESULT_FROM_WIN32(ERROR_FILE_TOO_LARGE)},
    };
    for (const auto& one : raises) {
        long count = -1;
        EXPECT_HR(one.result, TryRaise(one.name, one.properties, one.payload, count))
            << support::Narrow(one.properties + one.payload.substr(0, 100));
        EXPECT_EQ(0, count);
    }
    // The refused documents have changed nothing.
    EXPECT_EQ(1, Raise(L"e"));
    ASSERT_TRUE(inbox.WaitFor(id, 1));
    EXPECT_EQ(Callback(id, L"c", L""), inbox.Last());
}

TEST_F(EventManager, DamagedRegistrationsAreMovedAsideAndQueuedEventsDelivered) {
    const std::wstring id = Subscribe(Info(L"e"));
    inbox.FailNext(1);
    EXPECT_EQ(1, Raise(L"e"));
    KillHost();
    Damage(L"events.journal");
    Damage(L"timer.journal");
    inbox.Clear();
    ASSERT_NO_FATAL_FAILURE(Connect());
    EXPECT_TRUE(inbox.WaitFor(id, 1));
    EXPECT_EQ(0, Raise(L"e"));
    EXPECT_HR(vorna::PLATFORM_ID_UNKNOWN, Unsubscribe(id));
    EXPECT_TRUE(WasMovedAside(L"events.journal"));
    EXPECT_TRUE(WasMovedAside(L"timer.journal"));
}

} // namespace
