// The event access of the real host process, over COM: models change, clients are called.
#include "QXKeldan.h"
#include "common/com/results.h"
#include "common/com/scope_exit.h"
#include "common/services/platformservices.h"
#include "platform/HostTest.h"
#include "platform/data/ModelStore.h"
#include "platform/eventaccess/EventAccessService.h"

namespace {

using keldan::ServiceIdentity;
using vorna::bstr;
using vorna::com_ptr;

const ServiceIdentity GAUGE{L"1", L"gauge", L"urn:g"};

std::wstring Event(const std::wstring& xpath, const std::wstring& trigger = {}, const std::wstring& reset = {}) {
    return L"<Event><XPath>" + xpath + L"</XPath><Trigger>" + trigger + L"</Trigger><Reset>" + reset +
           L"</Reset></Event>";
}

std::wstring Document(const std::wstring& events, const std::wstring& duration = {},
                      const std::wstring& receiver = std::wstring(L"progID:") + RECEIVER) {
    return L"<EventSubscription ignoreErrors=\"false\"><Notification method=\"kro:IBaseClient\"><Input><URI>" +
           receiver + L"</URI></Input></Notification><Duration>" + duration +
           L"</Duration><ClientCookie>a\\b</ClientCookie>" + events + L"</EventSubscription>";
}

std::wstring Gauge(const std::wstring& pressure) {
    return L"<Gauge><Pressure>" + pressure + L"</Pressure></Gauge>";
}

// The content of the Data elements of the callbacks.
std::wstring DataOf(const std::vector<std::wstring>& callbacks) {
    std::wstring all;
    for (const std::wstring& callback : callbacks) {
        const auto begin = callback.find(L"<Data>") + 6;
        all += callback.substr(begin, callback.rfind(L"</Data>") - begin) + L"\n";
    }
    return all;
}

void WriteModel(const keldan::ModelStore& store, const std::wstring& model) {
    std::wstring message;
    ASSERT_HR(S_OK, store.Write(GAUGE, model, message)) << support::Narrow(message);
}

class EventAccess : public ServiceTest<IZEBEventAccess> {
  protected:
    EventAccess() : ServiceTest(vorna::PROGID_EVENT_ACCESS) {}
    HRESULT TrySubscribe(IUnknown* service, const std::wstring& document, bstr& answer) {
        return service_->Subscribe(service, bstr(document).get(), answer.put());
    }
    std::wstring Subscribe(const std::wstring& document) {
        const std::wstring head = L"<SubscriptionResults><SubscriptionID>";
        const std::wstring tail = L"</SubscriptionID></SubscriptionResults>";
        bstr answer;
        EXPECT_HR(S_OK, TrySubscribe(gauge_.get(), document, answer));
        const std::wstring text = answer.str();
        EXPECT_TRUE(text.starts_with(head) && text.ends_with(tail)) << support::Narrow(text);
        return text.size() > head.size() + tail.size()
                   ? text.substr(head.size(), text.size() - head.size() - tail.size())
                   : std::wstring();
    }
    HRESULT Modify(const std::wstring& id, const std::wstring& document, IUnknown* service = nullptr) {
        return service_->Modify(service, bstr(id).get(), bstr(document).get());
    }
    HRESULT Unsubscribe(const std::wstring& id) { return service_->Unsubscribe(nullptr, bstr(id).get()); }
    void Write(const std::wstring& model) { WriteModel(models_, model); }
    // Replaces the model and waits until its registrations have been evaluated.
    void WriteAndWait(const std::wstring& model) {
        const std::size_t before = inbox.Count(marker_);
        Write(model);
        ASSERT_TRUE(inbox.WaitFor(marker_, before + 1)) << support::Narrow(model);
    }

    const keldan::ModelStore models_{keldan::DataFolder(dataFolder_.wstring())};
    com_ptr<IUnknown> gauge_ = support::PlatformService(L"1", L"gauge", L"urn:g");
    // A registration that fires at every change.
    std::wstring marker_;
};

TEST_F(EventAccess, CallbackHasTheDataThatFired) {
    // The model and its folder do not exist yet.
    const std::wstring id = Subscribe(Document(Event(L"/Gauge/Pressure", L". &gt; 8", L". &lt; 6")));
    Write(Gauge(L"9"));
    ASSERT_TRUE(inbox.WaitFor(id, 1));
    const std::wstring callback = inbox.Last();
    const std::wstring head = L"<EventPayload><SubscriptionID>" + id +
                              L"</SubscriptionID><ClientCookie>a\\b</ClientCookie>"
                              L"<Event><XPath>/Gauge/Pressure</XPath><Time>";
    EXPECT_TRUE(callback.starts_with(head)) << support::Narrow(callback);
    EXPECT_TRUE(callback.ends_with(L"</Time><Data><Pressure>9</Pressure></Data></Event></EventPayload>"))
        << support::Narrow(callback);

    // Neither a file that is half written nor an unsubscribed event causes a callback.
    marker_ = Subscribe(Document(Event(L"/")));
    const std::wstring silent = Subscribe(Document(Event(L"/Gauge/Pressure", L". = 9")));
    EXPECT_HR(S_OK, Unsubscribe(silent));
    support::WriteFileBytes(models_.PathOf(GAUGE), "<Gauge><Pressu");
    WriteAndWait(Gauge(L"10"));
    WriteAndWait(Gauge(L"9"));
    EXPECT_EQ(1u, inbox.Count(id));
    EXPECT_EQ(0u, inbox.Count(silent));
}

TEST_F(EventAccess, ChangeWhileTheHostWasKilledIsNoticedAndNothingTwice) {
    Write(Gauge(L"9"));
    const std::wstring before = Subscribe(Document(Event(L"/Gauge/Pressure", L". &gt; 8")));
    const std::wstring meanwhile = Subscribe(Document(Event(L"/Gauge/Pressure", L". &gt; 10")));
    marker_ = Subscribe(Document(Event(L"/Gauge")));
    KillHost();
    Write(Gauge(L"11"));
    ASSERT_NO_FATAL_FAILURE(Connect());
    EXPECT_TRUE(inbox.WaitFor(meanwhile, 1));
    EXPECT_TRUE(inbox.WaitFor(marker_, 1));
    // Killed again, when no callback waits.
    WriteAndWait(Gauge(L"12"));
    ASSERT_NO_FATAL_FAILURE(KillAndReconnect());
    WriteAndWait(Gauge(L"13"));
    EXPECT_EQ(1u, inbox.Count(meanwhile));
    EXPECT_EQ(0u, inbox.Count(before));
}

TEST_F(EventAccess, DurationEndsARegistrationAndModifyRestartsIt) {
    const std::wstring lasting = Document(Event(L"/Gauge"), L"P0Y0M1DT0H0M0S");
    const std::wstring renewed = Subscribe(Document(Event(L"/Gauge"), L"P0Y0M0DT0H0M3S"));
    EXPECT_HR(S_OK, Modify(renewed, lasting));
    const std::wstring id = Subscribe(Document(Event(L"/Gauge"), L"P0Y0M0DT0H0M1S"));
    const auto until = std::chrono::steady_clock::now() + PATIENCE;
    HRESULT result = S_OK;
    do
        result = Modify(id, L"<Other/>");
    while (result == E_INVALIDARG && std::chrono::steady_clock::now() < until);
    EXPECT_HR(vorna::PLATFORM_ID_EXPIRED, result);
    EXPECT_HR(vorna::PLATFORM_ID_EXPIRED, Unsubscribe(id));
    ASSERT_NO_FATAL_FAILURE(KillAndReconnect());
    EXPECT_HR(vorna::PLATFORM_ID_EXPIRED, Modify(id, lasting));
    EXPECT_HR(S_OK, Unsubscribe(renewed));
    EXPECT_HR(vorna::PLATFORM_ID_UNKNOWN, Unsubscribe(renewed));
}

TEST_F(EventAccess, ModifiedRegistrationKeepsTheStatesOfItsEvents) {
    Write(Gauge(L"9"));
    const std::wstring kept = Event(L"/Gauge/Pressure", L". &gt; 8", L". &lt; 6");
    const std::wstring id = Subscribe(Document(kept));
    marker_ = Subscribe(Document(Event(L"/Gauge")));
    EXPECT_HR(E_INVALIDARG, Modify(id, Document(kept), support::PlatformService(L"2", L"gauge", L"urn:g").get()));
    WriteAndWait(Gauge(L"7"));
    // The new event is true already; the old one still waits for its reset.
    EXPECT_HR(S_OK, Modify(id, Document(Event(L"//Pressure", L". = 7") + kept), gauge_.get()));
    WriteAndWait(Gauge(L"9"));
    WriteAndWait(Gauge(L"5"));
    WriteAndWait(Gauge(L"7"));
    ASSERT_TRUE(inbox.WaitFor(id, 1));
    WriteAndWait(Gauge(L"9"));
    ASSERT_TRUE(inbox.WaitFor(id, 2));
    EXPECT_EQ(L"<Pressure>7</Pressure>\n<Pressure>9</Pressure>\n", DataOf(inbox.Of(id)));
}

TEST_F(EventAccess, LiveModelIsWatchedWhileItHasRegistrations) {
    gauge_ = support::PlatformService(L"", L"me", L"host");
    const std::wstring id = Subscribe(Document(Event(L"/Host/Time/@Utc") + Event(L"/Host/NoSuch")));
    EXPECT_TRUE(inbox.WaitFor(id, 2));
    EXPECT_NE(std::wstring::npos, inbox.Last().find(L"<Data><Attribute name=\"Utc\">"));
    EXPECT_EQ(std::wstring::npos, inbox.Last().find(L"NoSuch"));
}

TEST_F(EventAccess, RefusesDocumentsThatAreNotEventSubscriptions) {
    const std::wstring event = Event(L"/Gauge");
    struct {
        const char* what;
        std::wstring document;
        HRESULT result;
    } const cases[] = {
        {"nothing", L"", vorna::RESULT_XML_MALFORMED},
        {"a document type", L"<!DOCTYPE a>" + Document(event), vorna::RESULT_XML_MALFORMED},
        {"another root", L"<Other/>", E_INVALIDARG},
        {"no event", Document(L""), E_INVALIDARG},
        {"an event without XPath", Document(Event(L" ")), E_INVALIDARG},
        {"an XPath that cannot select nodes", Document(Event(L"count(/Gauge)")), E_INVALIDARG},
        {"a trigger that closes the predicate", Document(Event(L"/Gauge", L"1] | //*[1")), E_INVALIDARG},
        {"a reset that is not valid", Document(Event(L"/Gauge", L"1", L"'")), E_INVALIDARG},
        {"two triggers", Document(L"<Event><XPath>/G</XPath><Trigger>1</Trigger><Trigger>2</Trigger></Event>"),
         E_INVALIDARG},
        {"a duration that is not valid", Document(event, L"one day"), E_INVALIDARG},
        {"a duration of zero", Document(event, L"P0Y0M0DT0H0M0S"), E_INVALIDARG},
        {"no receiver", Document(event, L"", L""), E_INVALIDARG},
        {"a receiver that is not a ProgID", Document(event, L"", L"http://a"), E_INVALIDARG},
    };
    const std::wstring id = Subscribe(Document(event));
    for (const auto& one : cases) {
        bstr none;
        EXPECT_HR(one.result, TrySubscribe(gauge_.get(), one.document, none)) << one.what;
        EXPECT_EQ(nullptr, none.get()) << one.what;
        EXPECT_HR(one.result, Modify(id, one.document)) << one.what;
    }
    bstr none;
    EXPECT_HR(vorna::RESULT_SERVICE_OBJECT, TrySubscribe(nullptr, Document(event), none));
    EXPECT_HR(vorna::RESULT_SERVICE_OBJECT, Modify(id, Document(event), service_.get()));
    EXPECT_HR(vorna::PLATFORM_ID_UNKNOWN, Modify(L"no such ID", Document(event)));
    EXPECT_HR(vorna::PLATFORM_ID_UNKNOWN, Unsubscribe(L"no such ID"));
    // The earlier registration still exists.
    Write(Gauge(L"1"));
    EXPECT_HR(S_OK, Unsubscribe(id));
}

TEST(EventAccessQueue, EventThatFindsNoRoomIsPostedWhenThereIsSome) {
    const support::TestFolder folder;
    const keldan::DataFolder data(folder.Path().wstring());
    const keldan::ModelStore store(data);
    ASSERT_NO_FATAL_FAILURE(WriteModel(store, Gauge(L"1")));
    Inbox came;
    keldan::OutboxPolicy policy;
    policy.perSubscription = 1;
    keldan::EventAccessService service(
        [&](const std::wstring&, const std::wstring& document) { return came.Take(document); }, data, policy);
    ASSERT_HR(S_OK, service.Start(folder.Path()));
    std::wstring id;
    ASSERT_HR(S_OK, service.Subscribe(GAUGE, Document(Event(L"/Gauge/Pressure")), id));
    came.Hold(id);
    // Also if the test fails: the service waits for the client.
    const vorna::scope_exit release([&] { came.Release(id); });
    ASSERT_NO_FATAL_FAILURE(WriteModel(store, Gauge(L"2")));
    ASSERT_TRUE(came.WaitFor(id, 1));
    ASSERT_NO_FATAL_FAILURE(WriteModel(store, Gauge(L"3")));
    // There is no room for the third pressure. Another registration shows that the fourth has been read.
    std::wstring other;
    ASSERT_HR(S_OK, service.Subscribe(GAUGE, Document(Event(L"/Gauge/Pressure", L". = 4")), other));
    ASSERT_NO_FATAL_FAILURE(WriteModel(store, Gauge(L"4")));
    ASSERT_TRUE(came.WaitFor(other, 1));
    EXPECT_EQ(1u, came.Count(id));
    came.Release(id);
    EXPECT_TRUE(came.WaitFor(id, 2));
    EXPECT_EQ(L"<Pressure>2</Pressure>\n<Pressure>4</Pressure>\n", DataOf(came.Of(id)));
    EXPECT_TRUE(service.InUse());
    service.Stop();
}

} // namespace
