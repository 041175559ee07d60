#include "platform/host/Host.h"

#include "common/com_server.h"
#include "platform/host/HostSignals.h"
#include "platform/host/HostedTimer.h"

#include <objbase.h>

#include <chrono>
#include <fstream>

namespace keldan {

namespace {

using namespace std::chrono;

// A host with no registrations and no client ends after this time.
constexpr seconds IDLE_BEFORE_END(30);
constexpr milliseconds IDLE_CHECK = seconds(5);

void Report(const wchar_t* text, HRESULT result) {
    wchar_t code[16];
    swprintf(code, std::size(code), L" 0x%08lX", static_cast<unsigned long>(result));
    OutputDebugStringW((std::wstring(L"QXKeldanHost: ") + text + code + L"\n").c_str());
}

} // namespace

Host::Host(std::filesystem::path folder) : folder_(std::move(folder)) {
    // Components are never destroyed: a client that hangs keeps a thread in them to the end of the process.
    components_.push_back(new HostedTimer());
}

HRESULT Host::Register() const {
    const std::wstring path = vorna::this_module_path();
    HRESULT result = RegisterTypeLibrary(path);
    for (const HostedComponent* component : components_)
        for (const server_class& entry : component->Classes())
            if (SUCCEEDED(result))
                result = RegisterServerClass(entry, ServerKind::LocalServer, path);
    return result;
}

HRESULT Host::Unregister() const {
    HRESULT result = UnregisterTypeLibrary(vorna::this_module_path());
    for (const HostedComponent* component : components_)
        for (const server_class& entry : component->Classes())
            if (const HRESULT one = UnregisterServerClass(entry); SUCCEEDED(result))
                result = one;
    return result;
}

HRESULT Host::StartComponents() {
    for (HostedComponent* component : components_)
        if (HRESULT result = component->Start(folder_); FAILED(result))
            return result;
    return S_OK;
}

HRESULT Host::OpenClasses() {
    for (const HostedComponent* component : components_)
        for (const server_class& entry : component->Classes()) {
            vorna::com_ptr<IUnknown> factory;
            HRESULT result = entry.getClassFactory(IID_IUnknown, factory.put_void());
            DWORD cookie = 0;
            if (SUCCEEDED(result))
                result =
                    CoRegisterClassObject(entry.clsid, factory.get(), CLSCTX_LOCAL_SERVER, REGCLS_MULTIPLEUSE, &cookie);
            if (FAILED(result))
                return result;
            classes_.push_back(cookie);
        }
    // The factories themselves count as uses.
    usesWithoutClients_ = static_cast<long>(classes_.size());
    return S_OK;
}

void Host::CloseClasses() {
    for (DWORD cookie : classes_)
        CoRevokeClassObject(cookie);
    classes_.clear();
    usesWithoutClients_ = 0;
}

bool Host::InUse() const {
    if (vorna::module_uses > usesWithoutClients_)
        return true;
    for (const HostedComponent* component : components_)
        if (component->HasRegistrations())
            return true;
    return false;
}

void Host::WritePid() const {
    std::ofstream file(folder_ / "host.pid", std::ios::trunc);
    file << GetCurrentProcessId() << "\n";
}

int Host::Run() {
    std::error_code ignored;
    // A folder that cannot be made shows when the first component opens its file.
    std::filesystem::create_directories(folder_, ignored);
    HostSignals signals(folder_);
    if (!signals.TakePlace())
        return 0;
    WritePid();
    HRESULT result = StartComponents();
    if (FAILED(result))
        Report(L"a component cannot start:", result);
    if (SUCCEEDED(result) && FAILED(result = OpenClasses()))
        Report(L"the classes cannot be registered:", result);

    bool ending = FAILED(result);
    if (!ending)
        signals.SetServing(true);
    auto lastUse = steady_clock::now();
    while (!ending) {
        const bool asked = signals.WaitForStop(static_cast<DWORD>(IDLE_CHECK.count()));
        if (InUse())
            lastUse = steady_clock::now();
        if (!asked && steady_clock::now() - lastUse < IDLE_BEFORE_END)
            continue;
        signals.SetServing(false);
        CloseClasses();
        ending = true;
        // A client that came in through the closing door is served.
        if (!asked && InUse()) {
            ending = FAILED(OpenClasses());
            signals.SetServing(!ending);
            lastUse = steady_clock::now();
        }
    }
    CloseClasses();
    for (HostedComponent* component : components_)
        component->Stop();
    std::filesystem::remove(folder_ / "host.pid", ignored);
    return SUCCEEDED(result) ? 0 : 1;
}

} // namespace keldan
