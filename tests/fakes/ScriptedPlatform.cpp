#include "fakes/ScriptedPlatform.h"

#include "common/com/results.h"

#include <mutex>
#include <utility>

namespace fakes {

namespace {

Scripts current;
// Senders are called by several threads, and call back into themselves by way of the scripts' functions.
std::recursive_mutex senders;

// Counts a call; not S_OK if it is the one that fails.
HRESULT Counted() {
    FailingCall& failing = current.failing;
    return ++failing.calls == failing.number ? failing.result : S_OK;
}

template <typename Call>
HRESULT Counted(Call call) {
    const HRESULT answer = Counted();
    return answer == S_OK ? call() : answer;
}

HRESULT Next(std::vector<HRESULT>& answers) {
    if (HRESULT answer = Counted(); answer != S_OK)
        return answer;
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

// The test's answer to an operation on a stream; S_OK passes it on to the real manager.
HRESULT ScriptedAnswer(const wchar_t* operation, BSTR stream) {
    if (HRESULT answer = Counted(); answer != S_OK)
        return answer;
    return current.archive.answer ? current.archive.answer(operation, stream) : S_OK;
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

Scripts& CurrentScripts() {
    return current;
}
void ResetScripts() {
    current = Scripts();
}

STDMETHODIMP ScriptedTimer::GetTicket(BSTR* ticket) {
    if (HRESULT answer = Counted(); answer != S_OK)
        return answer;
    return Give(ticket, L"ticket-" + std::to_wstring(++current.timer.tickets));
}

HRESULT SenderScript::Subscribe(const std::wstring& document, std::wstring& id) {
    static int made = 0;
    const std::lock_guard lock(senders);
    if (HRESULT answer = Next(subscribe); answer != S_OK)
        return answer;
    id = L"id-" + std::to_wstring(GetCurrentProcessId()) + L"-" + std::to_wstring(++made);
    if (!ids.empty()) {
        id = ids.front();
        ids.erase(ids.begin());
    }
    schedules[id] = document;
    if (onSubscribed)
        onSubscribed(id);
    return S_OK;
}

HRESULT SenderScript::Modify(BSTR id, const std::wstring& document) {
    const std::lock_guard lock(senders);
    if (HRESULT answer = Next(modify); answer != S_OK)
        return answer;
    const auto found = schedules.find(std::wstring(vorna::view_of(id)));
    if (found == schedules.end())
        return vorna::PLATFORM_ID_UNKNOWN;
    found->second = document;
    if (auto run = std::exchange(onModified, nullptr))
        run();
    return S_OK;
}

HRESULT SenderScript::Unsubscribe(BSTR id) {
    const std::lock_guard lock(senders);
    unsubscribed.emplace_back(vorna::view_of(id));
    if (HRESULT answer = Next(unsubscribe); answer != S_OK)
        return answer;
    if (!schedules.erase(unsubscribed.back()))
        return vorna::PLATFORM_ID_UNKNOWN;
    if (auto run = std::exchange(onUnsubscribed, nullptr))
        run();
    return S_OK;
}

STDMETHODIMP ScriptedTimer::Subscribe(BSTR, BSTR schedule, BSTR* subscriptionId) {
    *subscriptionId = nullptr;
    std::wstring id;
    const HRESULT answer = current.timer.Subscribe(std::wstring(vorna::view_of(schedule)), id);
    return answer == S_OK ? Give(subscriptionId, id) : answer;
}

STDMETHODIMP ScriptedTimer::Unsubscribe(BSTR, BSTR subscriptionId) {
    return current.timer.Unsubscribe(subscriptionId);
}

STDMETHODIMP ScriptedTimer::Modify(BSTR subscriptionId, BSTR schedule) {
    return current.timer.Modify(subscriptionId, schedule);
}

STDMETHODIMP ScriptedEventManager::Subscribe(BSTR subscription, BSTR filter, BSTR receiver, BSTR* subscriptionId) {
    *subscriptionId = nullptr;
    EXPECT_EQ(L"progID:QXKELDAN.Vorna.1", vorna::view_of(receiver));
    std::wstring id;
    const HRESULT answer = current.eventManager.Subscribe(std::wstring(subscription) + filter, id);
    return answer == S_OK ? Give(subscriptionId, id) : answer;
}

STDMETHODIMP ScriptedEventManager::Modify(BSTR subscriptionId, BSTR subscription, BSTR filter) {
    return current.eventManager.Modify(subscriptionId, std::wstring(subscription) + filter);
}

STDMETHODIMP ScriptedEventManager::Unsubscribe(BSTR subscriptionId) {
    return current.eventManager.Unsubscribe(subscriptionId);
}

STDMETHODIMP ScriptedEventAccess::Subscribe(IUnknown* service, BSTR subscription, BSTR* answer) {
    *answer = nullptr;
    EXPECT_NE(nullptr, service);
    std::wstring id;
    if (HRESULT result = current.eventAccess.Subscribe(subscription, id); result != S_OK)
        return result;
    std::wstring text = current.eventAccess.answer;
    if (const size_t place = text.find(L'%'); place != std::wstring::npos)
        text.replace(place, 1, id);
    return Give(answer, text);
}

STDMETHODIMP ScriptedEventAccess::Modify(IUnknown* service, BSTR subscriptionId, BSTR subscription) {
    EXPECT_NE(nullptr, service);
    return current.eventAccess.Modify(subscriptionId, subscription);
}

STDMETHODIMP ScriptedEventAccess::Unsubscribe(IUnknown*, BSTR subscriptionId) {
    return current.eventAccess.Unsubscribe(subscriptionId);
}

STDMETHODIMP ScriptedAggregator::GetData(IUnknown*, BSTR, BSTR, BSTR* data, BSTR* secondResult) {
    ++current.aggregator.calls;
    *data = *secondResult = nullptr;
    if (auto run = std::exchange(current.aggregator.onGetData, nullptr))
        run();
    if (HRESULT answer = Counted(); answer != S_OK)
        return answer;
    if (current.aggregator.result != S_OK)
        return current.aggregator.result;
    return Give(data, current.aggregator.data);
}

ScriptedArchiveManager::ScriptedArchiveManager() {
    EXPECT_HR(S_OK, CoCreateInstance(__uuidof(ZEBSecureArchiveManager), nullptr, CLSCTX_INPROC_SERVER,
                                     __uuidof(ISecureArchiveManager), real_.put_void()));
}

STDMETHODIMP ScriptedArchiveManager::AddStream(BSTR name, BSTR data, long flags) {
    const HRESULT answer = ScriptedAnswer(L"add", name);
    return answer == S_OK ? real_->AddStream(name, data, flags) : answer;
}

STDMETHODIMP ScriptedArchiveManager::GetStream(BSTR name, long flags, BSTR* data) {
    *data = nullptr;
    const HRESULT answer = ScriptedAnswer(L"get", name);
    return answer == S_OK ? real_->GetStream(name, flags, data) : answer;
}

STDMETHODIMP ScriptedArchiveManager::RemoveFile(BSTR name) {
    const HRESULT answer = ScriptedAnswer(L"remove", name);
    return answer == S_OK ? real_->RemoveFile(name) : answer;
}

STDMETHODIMP ScriptedArchiveManager::put_Archive(BSTR path) {
    return Counted([&] { return real_->put_Archive(path); });
}

STDMETHODIMP ScriptedArchiveManager::GetEntryCount(long kind, long* count) {
    return Counted([&] { return real_->GetEntryCount(kind, count); });
}

STDMETHODIMP ScriptedArchiveManager::GetStreamNames(BSTR* names) {
    return Counted([&] { return real_.try_as<IArchiveStreams>()->GetStreamNames(names); });
}

ScriptedXmlAccessor::ScriptedXmlAccessor() {
    EXPECT_HR(S_OK, CoCreateInstance(__uuidof(XMLSimpleAccessor), nullptr, CLSCTX_INPROC_SERVER,
                                     __uuidof(IXMLSimpleAccessor), real_.put_void()));
}

STDMETHODIMP ScriptedXmlAccessor::get_delimiter(BSTR* text) {
    return Counted([&] { return real_->get_delimiter(text); });
}

STDMETHODIMP ScriptedXmlAccessor::Load(BSTR document) {
    return Counted([&] { return real_->Load(document); });
}

STDMETHODIMP ScriptedXmlAccessor::Query(BSTR xpath, long kind, BSTR* result) {
    return Counted([&] { return real_->Query(xpath, kind, result); });
}

STDMETHODIMP ScriptedXmlAccessor::Set(BSTR xpath, BSTR markup, long mode) {
    return Counted([&] { return real_->Set(xpath, markup, mode); });
}

STDMETHODIMP ScriptedXmlAccessor::get_RootName(BSTR* name) {
    return Counted([&] { return real_->get_RootName(name); });
}

STDMETHODIMP ScriptedXmlAccessor::get_NamespaceList(BSTR* declarations) {
    return Counted([&] { return real_->get_NamespaceList(declarations); });
}

STDMETHODIMP ScriptedXmlAccessor::TransformByFile(BSTR stylesheetFile, BSTR* result) {
    return Counted([&] { return real_->TransformByFile(stylesheetFile, result); });
}

vorna::com_ptr<IUnknown> MakeService(ServiceScript script) {
    vorna::com_ptr<ScriptedService> service;
    service.attach(new ScriptedService());
    service->script = std::move(script);
    return vorna::com_ptr<IUnknown>(service.get());
}

} // namespace fakes
