#include "fakes/ScriptedPlatform.h"

#include "common/results.h"

namespace fakes {

namespace {

Scripts current;

HRESULT Next(std::vector<HRESULT>& answers) {
    if (answers.empty())
        return S_OK;
    HRESULT answer = answers.front();
    answers.erase(answers.begin());
    return answer;
}

HRESULT Give(BSTR* out, std::wstring_view text) {
    *out = vorna::bstr(text).release();
    return S_OK;
}

// The real manager's class, looked up before a stand-in takes its ProgID.
CLSID RealArchiveManager() {
    return __uuidof(ZEBSecureArchiveManager);
}

class ScriptedService : public vorna::dispatch_object<ScriptedService, IZEBServiceObject> {
  public:
    ServiceScript script;

    STDMETHODIMP get_portID(BSTR* value) override { return Give(value, script.portId); }
    STDMETHODIMP get_serviceId(BSTR* value) override { return Give(value, script.serviceId); }
    STDMETHODIMP get_serviceURI(BSTR* value) override {
        return script.readServiceUri ? script.readServiceUri(value) : Give(value, script.serviceUri);
    }
    STDMETHODIMP get_model(BSTR* value) override { return Give(value, L"M1"); }
    STDMETHODIMP get_address(BSTR* value) override { return Give(value, L"10.0.0.7"); }
    STDMETHODIMP get_addressType(BSTR* value) override { return Give(value, L"IP"); }
    STDMETHODIMP get_friendlyName(BSTR* value) override { return Give(value, script.friendlyName); }
};

} // namespace

Scripts& scripts() {
    return current;
}
void ResetScripts() {
    current = Scripts();
}

STDMETHODIMP ScriptedTimer::GetTicket(BSTR* ticket) {
    return Give(ticket, L"ticket-" + std::to_wstring(++current.timer.tickets));
}

STDMETHODIMP ScriptedTimer::Subscribe(BSTR, BSTR schedule, BSTR* subscriptionId) {
    static int made = 0;
    *subscriptionId = nullptr;
    if (HRESULT answer = Next(current.timer.subscribe); answer != S_OK)
        return answer;
    const std::wstring id = L"id-" + std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(++made);
    current.timer.schedules[id] = vorna::view_of(schedule);
    if (current.timer.onSubscribed)
        current.timer.onSubscribed(id);
    return Give(subscriptionId, id);
}

STDMETHODIMP ScriptedTimer::Unsubscribe(BSTR, BSTR subscriptionId) {
    const std::wstring id(vorna::view_of(subscriptionId));
    current.timer.unsubscribed.push_back(id);
    if (HRESULT answer = Next(current.timer.unsubscribe); answer != S_OK)
        return answer;
    return current.timer.schedules.erase(id) ? S_OK : vorna::PLATFORM_ID_UNKNOWN;
}

STDMETHODIMP ScriptedTimer::Modify(BSTR subscriptionId, BSTR schedule) {
    if (HRESULT answer = Next(current.timer.modify); answer != S_OK)
        return answer;
    current.timer.schedules[std::wstring(vorna::view_of(subscriptionId))] = vorna::view_of(schedule);
    return S_OK;
}

STDMETHODIMP ScriptedAggregator::GetData(IUnknown*, BSTR, BSTR, BSTR* data, BSTR* secondResult) {
    ++current.aggregator.calls;
    *data = *secondResult = nullptr;
    if (current.aggregator.result != S_OK)
        return current.aggregator.result;
    return Give(data, current.aggregator.data);
}

ScriptedArchiveManager::ScriptedArchiveManager() {
    EXPECT_HR(S_OK, CoCreateInstance(RealArchiveManager(), nullptr, CLSCTX_INPROC_SERVER,
                                     __uuidof(ISecureArchiveManager), real_.put_void()));
}

STDMETHODIMP ScriptedArchiveManager::AddStream(BSTR name, BSTR data, long flags) {
    HRESULT answer = current.archive.answer ? current.archive.answer(L"add", name) : S_OK;
    return answer == S_OK ? real_->AddStream(name, data, flags) : answer;
}

STDMETHODIMP ScriptedArchiveManager::GetStream(BSTR name, long flags, BSTR* data) {
    *data = nullptr;
    HRESULT answer = current.archive.answer ? current.archive.answer(L"get", name) : S_OK;
    return answer == S_OK ? real_->GetStream(name, flags, data) : answer;
}

STDMETHODIMP ScriptedArchiveManager::RemoveFile(BSTR name) {
    HRESULT answer = current.archive.answer ? current.archive.answer(L"remove", name) : S_OK;
    return answer == S_OK ? real_->RemoveFile(name) : answer;
}

vorna::com_ptr<IUnknown> MakeService(ServiceScript script) {
    vorna::com_ptr<ScriptedService> service;
    service.attach(new ScriptedService());
    service->script = std::move(script);
    return vorna::com_ptr<IUnknown>(service.get());
}

} // namespace fakes
