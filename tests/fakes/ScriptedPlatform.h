// Stand-ins for platform components that do as a test says, for the failures that the real ones do not give on demand.
//
// A stand-in takes the place of the real component for the life of its installed_class object, in this process only.
#pragma once

#include "QXKeldan.h"
#include "common/bstr.h"
#include "common/com_server.h"
#include "support/Support.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace fakes {

// Points a ProgID at a class of the test's own.
template <typename Class>
class installed_class {
  public:
    explicit installed_class(const wchar_t* progId)
        : clsid_(NewGuid()), progId_(L"SOFTWARE\\Classes\\" + std::wstring(progId) + L"\\CLSID", L"", Text(clsid_)) {
        vorna::com_ptr<IUnknown> factory;
        vorna::get_class_factory<Class>(IID_IUnknown, factory.put_void());
        EXPECT_HR(S_OK,
                  CoRegisterClassObject(clsid_, factory.get(), CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &cookie_));
    }
    ~installed_class() { CoRevokeClassObject(cookie_); }
    installed_class(const installed_class&) = delete;
    installed_class& operator=(const installed_class&) = delete;

  private:
    static GUID NewGuid() {
        GUID guid{};
        EXPECT_HR(S_OK, CoCreateGuid(&guid));
        return guid;
    }
    static std::wstring Text(const GUID& guid) {
        wchar_t text[64] = L"";
        StringFromGUID2(guid, text, 64);
        return text;
    }

    GUID clsid_;
    support::RegistryValue progId_;
    DWORD cookie_ = 0;
};

// What the scripted timer answers and what it was asked.
struct TimerScript {
    // Answers taken in order, then S_OK.
    std::vector<HRESULT> subscribe;
    std::vector<HRESULT> unsubscribe;
    std::vector<HRESULT> modify;
    // Runs inside a successful subscribe, with the new ID.
    std::function<void(const std::wstring&)> onSubscribed;

    int tickets = 0;
    std::vector<std::wstring> unsubscribed;
    std::map<std::wstring, std::wstring> schedules;
};

struct AggregatorScript {
    HRESULT result = S_OK;
    std::wstring data = L"<Data><V>1</V></Data>";
    int calls = 0;
};

struct ArchiveScript {
    // The result that an operation on a stream is to give; S_OK passes it on to the real manager.
    std::function<HRESULT(const std::wstring& operation, const std::wstring& stream)> answer;
};

// Fresh scripts for one test.
struct Scripts {
    TimerScript timer;
    AggregatorScript aggregator;
    ArchiveScript archive;
};
Scripts& scripts();
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

class ScriptedAggregator : public vorna::dispatch_object<ScriptedAggregator, IAggregator> {
  public:
    STDMETHODIMP GetData(IUnknown* service, BSTR xpath, BSTR prefixes, BSTR* data, BSTR* secondResult) override;
};

// Fails on demand, otherwise the real manager.
class ScriptedArchiveManager : public vorna::dispatch_object<ScriptedArchiveManager, ISecureArchiveManager> {
  public:
    ScriptedArchiveManager();
    STDMETHODIMP put_Archive(BSTR path) override { return real_->put_Archive(path); }
    STDMETHODIMP GetEntryCount(long kind, long* count) override { return real_->GetEntryCount(kind, count); }
    STDMETHODIMP AddStream(BSTR name, BSTR data, long flags) override;
    STDMETHODIMP GetStream(BSTR name, long flags, BSTR* data) override;
    STDMETHODIMP RemoveFile(BSTR name) override;
    STDMETHODIMP put_Mode(long flag) override { return real_->put_Mode(flag); }

  private:
    vorna::com_ptr<ISecureArchiveManager> real_;
};

// A client's service object.
struct ServiceScript {
    std::wstring portId = L"7";
    std::wstring serviceId = L"press";
    std::wstring serviceUri = L"press-7";
    std::wstring friendlyName = L"Press & Co <7>";
    // Runs in place of reading the service URI where it is set.
    std::function<HRESULT(BSTR*)> readServiceUri;
};
vorna::com_ptr<IUnknown> MakeService(ServiceScript script = {});

} // namespace fakes
