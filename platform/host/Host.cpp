#include "platform/host/Host.h"

#include "common/com/com_server.h"
#include "common/com/text_forms.h"
#include "platform/data/DataFolder.h"
#include "platform/delivery/ClientCall.h"
#include "platform/eventaccess/EventAccessService.h"
#include "platform/eventaccess/ZEBEventAccess.h"
#include "platform/events/EventManagerService.h"
#include "platform/events/ZEBEventManager.h"
#include "platform/host/HostSignals.h"
#include "platform/hosting/Report.h"
#include "platform/timer/TimerService.h"
#include "platform/timer/ZEBTimer.h"

#include <objbase.h>

#include <chrono>
#include <fstream>
#include <thread>

namespace keldan {

namespace {

using namespace std::chrono;

// A host without registrations and clients ends after this time.
constexpr seconds IDLE_BEFORE_END(30);
constexpr milliseconds IDLE_CHECK = seconds(5);
constexpr seconds LINGER(3);

constexpr ServerClass TIMER{__uuidof(::ZEBTimer), L"QXKELDAN.ZEBTimer", L"QXKeldan timer",
                            vorna::get_class_factory<ZEBTimer>};
constexpr ServerClass EVENT_MANAGER{__uuidof(::ZEBEventManager), L"QXKELDAN.ZEBEventManager", L"QXKeldan event manager",
                                    vorna::get_class_factory<ZEBEventManager>};
constexpr ServerClass EVENT_ACCESS{__uuidof(::ZEBEventAccess), L"QXKELDAN.ZEBEventAccess", L"QXKeldan event access",
                                   vorna::get_class_factory<ZEBEventAccess>};

} // namespace

Host::Host(std::filesystem::path folder) : folder_(std::move(folder)) {
    // Components are never destroyed: the thread of a client that hangs uses them until the process ends.
    components_.push_back(new Hosted<TimerService, ZEBTimer>(TIMER, DeliverToClient));
    components_.push_back(new Hosted<EventManagerService, ZEBEventManager>(EVENT_MANAGER, DeliverToClient));
    components_.push_back(
        new Hosted<EventAccessService, ZEBEventAccess>(EVENT_ACCESS, DeliverToClient, DataFolder::Configured()));
}

std::vector<ServerClass> Host::Classes() const {
    std::vector<ServerClass> classes;
    for (const HostedComponent* component : components_)
        classes.push_back(component->ClassEntry());
    return classes;
}

HRESULT Host::Register() const {
    return RegisterModule(vorna::this_module_path(), ServerKind::LocalServer, Classes());
}

HRESULT Host::Unregister() const {
    return UnregisterModule(vorna::this_module_path(), Classes());
}

HRESULT Host::StartComponents() {
    for (HostedComponent* component : components_)
        if (HRESULT result = component->Start(folder_); FAILED(result))
            return result;
    return S_OK;
}

bool Host::InUse(const ClassObjects& classes) const {
    if (vorna::module_uses > classes.Uses())
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
    if (const HRESULT result = CreateFolder(folder_.wstring()); FAILED(result)) {
        Report(L"the data folder cannot be made: " + vorna::hex_text(result));
        return 1;
    }
    HostSignals signals(folder_);
    if (!signals.TakePlace()) {
        // A client fails as soon as the process that COM started for it ends, so this one stays until the client has
        // found the class objects of the other host.
        std::this_thread::sleep_for(LINGER);
        return 0;
    }
    WritePid();
    ClassObjects classes(signals.Renew());
    HRESULT result = StartComponents();
    if (FAILED(result))
        Report(L"a component cannot start: " + vorna::hex_text(result));
    if (SUCCEEDED(result) && FAILED(result = classes.Open(Classes())))
        Report(L"the classes cannot be registered: " + vorna::hex_text(result));
    if (SUCCEEDED(result)) {
        signals.SetServing(true);
        Serve(signals, classes);
        signals.SetServing(false);
    }
    classes.Close();
    for (HostedComponent* component : components_)
        component->Stop();
    std::error_code ignored;
    std::filesystem::remove(folder_ / "host.pid", ignored);
    return SUCCEEDED(result) ? 0 : 1;
}

// Returns when the host is asked to end, or was not in use for a while.
void Host::Serve(HostSignals& signals, ClassObjects& classes) const {
    auto lastUse = steady_clock::now();
    for (;;) {
        const HostSignals::Request request = signals.WaitForRequest(static_cast<DWORD>(IDLE_CHECK.count()));
        if (request == HostSignals::Request::Stop)
            return;
        if (request == HostSignals::Request::Renew)
            if (const HRESULT result = classes.Renew(); FAILED(result))
                Report(L"the classes cannot be registered again: " + vorna::hex_text(result));
        if (request == HostSignals::Request::Renew || InUse(classes))
            lastUse = steady_clock::now();
        if (steady_clock::now() - lastUse < IDLE_BEFORE_END)
            continue;
        signals.SetServing(false);
        classes.Close();
        // A client that arrived while the classes were being closed is served.
        if (!InUse(classes) || FAILED(classes.Open(Classes())))
            return;
        signals.SetServing(true);
        lastUse = steady_clock::now();
    }
}

} // namespace keldan
