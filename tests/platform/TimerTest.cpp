// The timer of the real host process, over COM: it is started on demand, calls back, and loses nothing when it is
// killed.
#include "QXKeldan.h"
#include "VornaLib.h"
#include "common/com/bstr.h"
#include "common/com/com_server.h"
#include "common/com/results.h"
#include "common/com/unique_any.h"
#include "common/services/platformservices.h"
#include "common/time/DateTime.h"
#include "platform/HostTest.h"
#include "platform/delivery/ClientCall.h"

#include <optional>

namespace {

using vorna::bstr;

std::wstring LocalText(int secondsFromNow) {
    return vorna::FormatDateTime(support::FromNow(secondsFromNow));
}

struct Document {
    std::wstring start = LocalText(0);
    std::wstring frequency = L"P0Y0M0DT0H0M1S";
    std::wstring aging;
    std::wstring mode = L"SEQUENTIAL";
    std::wstring type = L"COM";
    std::wstring client = RECEIVER;
    std::wstring parameter = L"cookie";
    std::wstring rest;

    std::wstring Text() const {
        return L"<ScheduleInfo><Schedule>\t<StartDateTime>" + start + L"</StartDateTime>\t<Frequency>" + frequency +
               L"</Frequency>\t</Schedule>" + aging + L"<NotificationInfo Mode=\"" + mode + L"\"><Notify type=\"" +
               type + L"\">\t<Client>" + client + L"</Client>\t<Parameter>" + parameter + L"</Parameter>" + rest +
               L"</Notify></NotificationInfo></ScheduleInfo>";
    }
    // Ticks once now, and not again while the test runs.
    static Document Once() {
        Document document;
        document.frequency = L"P0Y0M1DT0H0M0S";
        return document;
    }
};

class Timer : public ServiceTest<IZEBTimer> {
  protected:
    Timer() : ServiceTest(vorna::PROGID_TIMER) {}
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(ServiceTest::SetUp());
        bstr ticket;
        ASSERT_HR(S_OK, service_->GetTicket(ticket.put()));
        ticket_ = ticket.str();
    }
    std::wstring Subscribe(const Document& document) {
        bstr id;
        EXPECT_HR(S_OK, TrySubscribe(ticket_, document.Text(), id));
        return id.str();
    }
    HRESULT TrySubscribe(const std::wstring& ticket, const std::wstring& document, bstr& id) {
        return service_->Subscribe(bstr(ticket).get(), bstr(document).get(), id.put());
    }
    HRESULT Unsubscribe(const std::wstring& id) { return service_->Unsubscribe(bstr(ticket_).get(), bstr(id).get()); }
    HRESULT Modify(const std::wstring& id, const std::wstring& document) {
        return service_->Modify(bstr(id).get(), bstr(document).get());
    }
    // Waits for two ticks of another registration: everything that is due has been delivered then.
    void WaitForTwoTicks() {
        const std::wstring marker = Subscribe({});
        EXPECT_TRUE(inbox.WaitFor(marker, 2));
        EXPECT_HR(S_OK, Unsubscribe(marker));
    }

    std::wstring ticket_;
};

TEST_F(Timer, CallsBackUntilItIsUnsubscribed) {
    // A client that cannot be created does not disturb others.
    Document absent;
    absent.client = L"QXKELDAN.NoSuchClass";
    Subscribe(absent);
    Document document;
    document.parameter = L"5 &lt; 6 &amp; \"7\"";
    const std::wstring id = Subscribe(document);
    ASSERT_TRUE(inbox.WaitFor(id, 2));
    EXPECT_EQ(L"<TimerEvent><SubscriptionID>" + id +
                  L"</SubscriptionID><ClientCookie>5 &lt; 6 &amp; \"7\"</ClientCookie></TimerEvent>",
              inbox.Last());
    EXPECT_HR(S_OK, Unsubscribe(id));
    const std::size_t before = inbox.Count(id);
    WaitForTwoTicks();
    // One may have been under way.
    EXPECT_LE(inbox.Count(id), before + 1);
    EXPECT_HR(vorna::PLATFORM_ID_UNKNOWN, Unsubscribe(id));
    EXPECT_HR(vorna::PLATFORM_ID_UNKNOWN, Modify(id, document.Text()));
}

TEST_F(Timer, KilledHostRestartsWithItsRegistrationsAndTickets) {
    const std::wstring first = Subscribe({});
    ASSERT_TRUE(inbox.WaitFor(first, 1));
    // Killed immediately after the call has returned.
    const std::wstring second = Subscribe({});
    KillHost();
    inbox.Clear();
    ASSERT_NO_FATAL_FAILURE(Connect());
    EXPECT_TRUE(inbox.WaitFor(first, 2));
    EXPECT_TRUE(inbox.WaitFor(second, 2));
    EXPECT_HR(S_OK, Unsubscribe(first));
    EXPECT_HR(S_OK, Unsubscribe(second));
    ASSERT_NO_FATAL_FAILURE(KillAndReconnect());
    EXPECT_HR(vorna::PLATFORM_ID_UNKNOWN, Unsubscribe(first));
}

TEST_F(Timer, TickMissedWhileNoHostRanIsDeliveredOnce) {
    Document document = Document::Once();
    document.start = LocalText(2);
    const std::wstring id = Subscribe(document);
    KillHost();
    EXPECT_EQ(0u, inbox.Count(id));
    const vorna::unique_handle due(CreateWaitableTimerW(nullptr, TRUE, nullptr));
    LARGE_INTEGER later{};
    later.QuadPart = -25'000'000;
    ASSERT_TRUE(SetWaitableTimer(due.get(), &later, 0, nullptr, nullptr, FALSE));
    WaitForSingleObject(due.get(), INFINITE);
    ASSERT_NO_FATAL_FAILURE(Connect());
    EXPECT_TRUE(inbox.WaitFor(id, 1));
    WaitForTwoTicks();
    EXPECT_EQ(1u, inbox.Count(id));
    ASSERT_NO_FATAL_FAILURE(KillAndReconnect());
    WaitForTwoTicks();
    EXPECT_EQ(1u, inbox.Count(id)) << "a delivered tick was repeated after a kill";
}

TEST_F(Timer, FailedDeliveryIsRetriedAsOftenAsTheDocumentSays) {
    inbox.FailNext(3);
    Document document = Document::Once();
    document.rest = L"<Retry><RetryFrequency>P0Y0M0DT0H0M1S</RetryFrequency><RetryAttempts>2</RetryAttempts></Retry>";
    const std::wstring id = Subscribe(document);
    EXPECT_TRUE(inbox.WaitFor(id, 3));
    WaitForTwoTicks();
    EXPECT_EQ(3u, inbox.Count(id));
}

TEST_F(Timer, ModifiedScheduleReplacesTheOldOne) {
    Document distant;
    distant.start = LocalText(86400);
    const std::wstring id = Subscribe(distant);
    EXPECT_EQ(0u, inbox.Count(id));
    Document close;
    close.parameter = L"another";
    EXPECT_HR(S_OK, Modify(id, close.Text()));
    ASSERT_TRUE(inbox.WaitFor(id, 1));
    EXPECT_NE(std::wstring::npos, inbox.Last().find(L"<ClientCookie>another</ClientCookie>"));
}

TEST_F(Timer, ExpiredRegistrationIsRememberedAsExpired) {
    Document document;
    document.aging = L"<Aging><AgingCount>2</AgingCount></Aging>";
    const std::wstring id = Subscribe(document);
    ASSERT_TRUE(inbox.WaitFor(id, 2));
    WaitForTwoTicks();
    EXPECT_EQ(2u, inbox.Count(id));
    EXPECT_HR(vorna::PLATFORM_ID_EXPIRED, Modify(id, document.Text()));
    ASSERT_NO_FATAL_FAILURE(KillAndReconnect());
    EXPECT_HR(vorna::PLATFORM_ID_EXPIRED, Unsubscribe(id));
}

TEST_F(Timer, RefusesDocumentsThatAreNotSchedules) {
    struct {
        const char* what;
        void (*spoil)(Document&);
    } const cases[] = {
        {"no start", [](Document& d) { d.start.clear(); }},
        {"a start that is not a date", [](Document& d) { d.start = L"2027-2-30T0:0:0"; }},
        {"no frequency", [](Document& d) { d.frequency.clear(); }},
        {"a frequency of zero", [](Document& d) { d.frequency = L"P0Y0M0DT0H0M0S"; }},
        {"a count of zero", [](Document& d) { d.aging = L"<Aging><AgingCount>0</AgingCount></Aging>"; }},
        {"an unknown mode", [](Document& d) { d.mode = L"SIDEWAYS"; }},
        {"an unknown type", [](Document& d) { d.type = L"FAX"; }},
        {"an empty client", [](Document& d) { d.client.clear(); }},
        {"a timeout that is not valid", [](Document& d) { d.rest = L"<NotifyTimeout>soon</NotifyTimeout>"; }},
        {"two cookies", [](Document& d) { d.rest = L"<Parameter>another</Parameter>"; }},
        {"markup that is not well-formed", [](Document& d) { d.rest = L"<Retry>"; }},
    };
    const std::wstring id = Subscribe(Document::Once());
    for (const auto& one : cases) {
        Document document;
        one.spoil(document);
        bstr none;
        EXPECT_HR(E_INVALIDARG, TrySubscribe(ticket_, document.Text(), none)) << one.what;
        EXPECT_EQ(nullptr, none.get()) << one.what;
        EXPECT_HR(E_INVALIDARG, Modify(id, document.Text())) << one.what;
    }
    for (const wchar_t* document : {L"", L"<ScheduleInfo/>", L"<Other/>"}) {
        bstr none;
        EXPECT_HR(E_INVALIDARG, TrySubscribe(ticket_, document, none));
    }
    bstr none;
    EXPECT_HR(vorna::PLATFORM_TICKET_UNKNOWN, TrySubscribe(L"no such ticket", Document().Text(), none));
    EXPECT_HR(vorna::PLATFORM_ID_UNKNOWN, Unsubscribe(L"no such ID"));
    EXPECT_HR(vorna::PLATFORM_ID_UNKNOWN, Modify(L"no such ID", Document().Text()));
}

TEST_F(Timer, OneHostServesAFolder) {
    const DWORD id = HostId();
    EXPECT_EQ(0u, support::RunHost(L"-Embedding"));
    EXPECT_EQ(id, HostId());
    EXPECT_HR(S_OK, Unsubscribe(Subscribe(Document::Once())));
    service_.reset();
    EXPECT_EQ(0u, support::RunHost(L"/stop"));
    EXPECT_FALSE(std::filesystem::exists(dataFolder_ / "host.pid"));
    EXPECT_EQ(0u, support::RunHost(L"/stop"));
}

class Faulty : public vorna::com_object<Faulty, IComBaseClient> {
  public:
    STDMETHODIMP Deliver(BSTR, BSTR*) override {
        // NOLINTNEXTLINE(clang-analyzer-core.NullDereference): the fault is wanted
        *static_cast<volatile int*>(nullptr) = 1;
        return S_OK;
    }
};

class Mute : public vorna::com_object<Mute, IPersist> {
  public:
    STDMETHODIMP GetClassID(CLSID*) override { return E_NOTIMPL; }
};

TEST(ClientCall, FaultsAndMissingInterfacesOfClientsAreFailures) {
    const fakes::InstalledClass<Faulty> faulty(L"QXKELDAN.TimerTestFaulty");
    const fakes::InstalledClass<Mute> mute(L"QXKELDAN.TimerTestMute");
    EXPECT_HR(E_UNEXPECTED, keldan::DeliverToClient(L"QXKELDAN.TimerTestFaulty", L"<a/>"));
    EXPECT_HR(E_NOINTERFACE, keldan::DeliverToClient(L"QXKELDAN.TimerTestMute", L"<a/>"));
    EXPECT_HR(CO_E_CLASSSTRING, keldan::DeliverToClient(L"QXKELDAN.NoSuchClass", L"<a/>"));
}

} // namespace
