#include "platform/host/ClassObjects.h"

#include "common/com/com_server.h"
#include "common/com/scope_exit.h"

#include <objbase.h>

#include <utility>

namespace keldan {

namespace {

// The limit for one class; after more kills in a row, clients must retry more often.
constexpr int MOST_LEFT_OVER = 64;

// A class factory that signals its use.
class ObservedFactory : public vorna::com_object<ObservedFactory, IClassFactory> {
  public:
    ObservedFactory(vorna::com_ptr<IClassFactory> factory, HANDLE used) : factory_(std::move(factory)), used_(used) {}

    STDMETHODIMP CreateInstance(IUnknown* outer, REFIID iid, void** object) override {
        const HRESULT result = factory_->CreateInstance(outer, iid, object);
        SetEvent(used_);
        return result;
    }
    STDMETHODIMP LockServer(BOOL lock) override { return factory_->LockServer(lock); }

  private:
    const vorna::com_ptr<IClassFactory> factory_;
    const HANDLE used_;
};

bool UnderWine() {
    const HMODULE system = GetModuleHandleW(L"ntdll.dll");
    return system && GetProcAddress(system, "wine_get_version") != nullptr;
}

} // namespace

ClassObjects::ClassObjects(HANDLE renew) : renew_(renew), singleUse_(UnderWine()) {}

HRESULT ClassObjects::Open(std::vector<ServerClass> classes) {
    classes_.swap(classes);
    const HRESULT result = Register();
    if (SUCCEEDED(result) && singleUse_) {
        closing_ = false;
        sweep_ = std::thread([this] { UseUpLeftOvers(); });
    }
    return result;
}

// Creates objects as a client does: that uses up class objects of killed hosts before those of this host. It needs a
// separate apartment, because in the apartment of the registrations COM finds only this host's class objects.
void ClassObjects::UseUpLeftOvers() {
    if (FAILED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)))
        return;
    vorna::scope_exit leave([] { CoUninitialize(); });
    for (const ServerClass& entry : classes_)
        for (int attempt = 0; attempt < MOST_LEFT_OVER && !closing_; ++attempt) {
            vorna::com_ptr<IUnknown> object;
            const bool ours =
                SUCCEEDED(CoCreateInstance(entry.clsid, nullptr, CLSCTX_LOCAL_SERVER, IID_IUnknown, object.put_void()));
            if (ours)
                break;
        }
}

HRESULT ClassObjects::Renew() {
    if (!singleUse_)
        return S_OK;
    Revoke();
    return Register();
}

void ClassObjects::Close() {
    closing_ = true;
    if (sweep_.joinable())
        sweep_.join();
    Revoke();
    classes_.clear();
}

HRESULT ClassObjects::Register() {
    for (const ServerClass& entry : classes_) {
        vorna::com_ptr<IClassFactory> plain;
        HRESULT result = entry.getClassFactory(IID_IClassFactory, plain.put_void());
        if (FAILED(result))
            return result;
        vorna::com_ptr<IClassFactory> observed;
        observed.attach(new ObservedFactory(std::move(plain), renew_));
        DWORD cookie = 0;
        result = CoRegisterClassObject(entry.clsid, observed.get(), CLSCTX_LOCAL_SERVER,
                                       singleUse_ ? REGCLS_SINGLEUSE : REGCLS_MULTIPLEUSE, &cookie);
        if (FAILED(result))
            return result;
        cookies_.push_back(cookie);
    }
    // Two objects for each class.
    uses_ = 2 * static_cast<long>(cookies_.size());
    return S_OK;
}

void ClassObjects::Revoke() {
    for (DWORD cookie : std::exchange(cookies_, {}))
        CoRevokeClassObject(cookie);
    uses_ = 0;
}

} // namespace keldan
