#include "InstalledPlatform.h"

#include "common/com/unique_any.h"

#include <objbase.h>

#include <cstdio>
#include <stdexcept>

namespace bench {

namespace {

void StopHost() {
    std::wstring command = L"\"" + (support::BinFolder() / "QXKeldanHost.exe").wstring() + L"\" /stop";
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (!CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process))
        return;
    vorna::unique_handle handle(process.hProcess);
    vorna::unique_handle thread(process.hThread);
    WaitForSingleObject(handle.get(), INFINITE);
}

} // namespace

InstalledPlatform::InstalledPlatform() {
    support::RegisterPlatform();
    // One that runs already has its data elsewhere.
    StopHost();
    support::InstallComponent(Folder());
}

InstalledPlatform::~InstalledPlatform() {
    StopHost();
    // The component's module lies in the folder, which is removed next.
    CoFreeUnusedLibrariesEx(0, 0);
}

void Require(HRESULT result, const char* what) {
    if (result == S_OK)
        return;
    char text[128];
    std::snprintf(text, sizeof text, "%s: 0x%08lX", what, static_cast<unsigned long>(result));
    throw std::runtime_error(text);
}

} // namespace bench
