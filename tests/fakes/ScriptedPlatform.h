// Stand-ins for platform components that do as a test says, for the failures that the real ones do not give on demand.
//
// A stand-in takes the place of the real component for the life of its InstalledClass object, in this process only.
#pragma once

#include "QXKeldan.h"
#include "common/com/bstr.h"
#include "common/com/com_server.h"
#include "fakes/InstalledClass.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace fakes {

// What a scripted sender of callbacks answers and what it was asked.
struct SenderScript {
    // Answers taken in order, then S_OK.
    std::vector<HRESULT> subscribe;
    std::vector<HRESULT> unsubscribe;
    std::vector<HRESULT> modify;
    // IDs of the next registrations, taken in order; then each is unique.
    std::vector<std::wstring> ids;
    // Runs inside a successful subscribe, with the new ID.
    std::function<void(const std::wstring&)> onSubscribed;
    // Run inside a successful unsubscribe and a successful modify, once.
    std::function<void()> onUnsubscribed;
    std::function<void()> onModified;

    std::vector<std::wstring> unsubscribed;
    // The current registrations: schedules, or subscription and filter documents one after the other.
    std::map<std::wstring, std::wstring> schedules;

    HRESULT Subscribe(const std::wstring& document, std::wstring& id);
    HRESULT Modify(BSTR id, const std::wstring& document);
    HRESULT Unsubscribe(BSTR id);
};

struct TimerScript : SenderScript {
    int tickets = 0;
};

struct EventAccessScript : SenderScript {
    // The answer to a subscription, with "%" for the ID.
    std::wstring answer = L"<R><SubscriptionResults><SubscriptionID>%</SubscriptionID></SubscriptionResults></R>";
};

struct AggregatorScript {
    HRESULT result = S_OK;
    std::wstring data = L"<Data><V>1</V></Data>";
    int calls = 0;
    std::function<void()> onGetData;
};

struct ArchiveScript {
    // The result that an operation on a stream is to give; S_OK passes it on to the real manager.
    std::function<HRESULT(const std::wstring& operation, const std::wstring& stream)> answer;
};

// Makes one call to a stand-in fail, whichever it is.
struct FailingCall {
    // Counts from 1; 0: none fails.
    int number = 0;
    int calls = 0;
    HRESULT result = E_FAIL;
};

// Fresh scripts for one test.
struct Scripts {
    FailingCall failing;
    TimerScript timer;
    SenderScript eventManager;
    EventAccessScript eventAccess;
    AggregatorScript aggregator;
    ArchiveScript archive;
};
Scripts& CurrentScripts();
void ResetScripts();

class ScriptedTimer : public vorna::dispatch_object<ScriptedTimer, IZEBTimer> {
  public:
    STDMETHODIMP GetTicket(BSTR* ticket) override;
    STDMETHODIMP Reserved2() override { return E_NOTIMPL; }
    STDMETHODIMP Subscribe(BSTR ticket, BSTR schedule, BSTR* subscriptionId) override;
    STDMETHODIMP Unsubscribe(BSTR ticket, BSTR subscriptionId) override;
    STDMETHODIMP Reserved5() override { return E_NOTIMPL; }
    STDMETHODIMP Reserved6() override { return E_NOTIMPL; }
    STDMETHODIMP Modify(BSTR subscriptionId, BSTR schedule) override;
};

class ScriptedEventManager : public vorna::dispatch_object<ScriptedEventManager, IZEBEventManager> {
  public:
    STDMETHODIMP Subscribe(BSTR subscription, BSTR filter, BSTR receiver, BSTR* subscriptionId) override;
    STDMETHODIMP Modify(BSTR subscriptionId, BSTR subscription, BSTR filter) override;
    STDMETHODIMP Unsubscribe(BSTR subscriptionId) override;
    STDMETHODIMP Raise(BSTR, BSTR, BSTR, long*) override { return E_NOTIMPL; }
};

class ScriptedEventAccess : public vorna::dispatch_object<ScriptedEventAccess, IZEBEventAccess> {
  public:
    STDMETHODIMP Subscribe(IUnknown* service, BSTR subscription, BSTR* answer) override;
    STDMETHODIMP Modify(IUnknown* service, BSTR subscriptionId, BSTR subscription) override;
    STDMETHODIMP Unsubscribe(IUnknown* service, BSTR subscriptionId) override;
};

class ScriptedAggregator : public vorna::dispatch_object<ScriptedAggregator, IAggregator> {
  public:
    STDMETHODIMP GetData(IUnknown* service, BSTR xpath, BSTR prefixes, BSTR* data, BSTR* secondResult) override;
};

// Fails on demand, otherwise the real manager.
class ScriptedArchiveManager
    : public vorna::dispatch_object<ScriptedArchiveManager, ISecureArchiveManager, IArchiveStreams> {
  public:
    ScriptedArchiveManager();
    STDMETHODIMP put_Archive(BSTR path) override;
    STDMETHODIMP GetEntryCount(long kind, long* count) override;
    STDMETHODIMP AddStream(BSTR name, BSTR data, long flags) override;
    STDMETHODIMP GetStream(BSTR name, long flags, BSTR* data) override;
    STDMETHODIMP RemoveFile(BSTR name) override;
    STDMETHODIMP put_Mode(long flag) override { return real_->put_Mode(flag); }
    STDMETHODIMP GetStreamNames(BSTR* names) override;

  private:
    vorna::com_ptr<ISecureArchiveManager> real_;
};

// The same for the XML accessor.
class ScriptedXmlAccessor : public vorna::dispatch_object<ScriptedXmlAccessor, IXMLSimpleAccessor> {
  public:
    ScriptedXmlAccessor();
    STDMETHODIMP get_delimiter(BSTR* text) override;
    STDMETHODIMP Reserved8() override { return E_NOTIMPL; }
    STDMETHODIMP Reserved9() override { return E_NOTIMPL; }
    STDMETHODIMP Reserved10() override { return E_NOTIMPL; }
    STDMETHODIMP Reserved11() override { return E_NOTIMPL; }
    STDMETHODIMP Load(BSTR document) override;
    STDMETHODIMP Reserved13() override { return E_NOTIMPL; }
    STDMETHODIMP Reserved14() override { return E_NOTIMPL; }
    STDMETHODIMP Query(BSTR xpath, long kind, BSTR* result) override;
    STDMETHODIMP Reserved16() override { return E_NOTIMPL; }
    STDMETHODIMP Set(BSTR xpath, BSTR markup, long mode) override;
    STDMETHODIMP get_RootName(BSTR* name) override;
    STDMETHODIMP get_NamespaceList(BSTR* declarations) override;
    STDMETHODIMP TransformByFile(BSTR stylesheetFile, BSTR* result) override;

  private:
    vorna::com_ptr<IXMLSimpleAccessor> real_;
};

// A client's service object.
struct ServiceScript {
    std::wstring portId = L"7";
    std::wstring serviceId = L"press";
    std::wstring serviceUri = L"press-7";
    std::wstring friendlyName = L"Press & Co <7>";
    // Runs in place of reading the service URI where it is set.
    std::function<HRESULT(BSTR*)> readServiceUri = {};
};
vorna::com_ptr<IUnknown> MakeService(ServiceScript script = {});

} // namespace fakes
