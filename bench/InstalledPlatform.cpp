#include "bench/InstalledPlatform.h"

#include "common/com/text_forms.h"
#include "common/com/unique_any.h"

#include <objbase.h>

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
    // A host that is already running uses another data folder.
    StopHost();
    support::InstallComponent(Folder());
}

InstalledPlatform::~InstalledPlatform() {
    StopHost();
    // The component's module is in the folder, which is removed next.
    CoFreeUnusedLibrariesEx(0, 0);
}

void Require(HRESULT result, const char* what) {
    if (result != S_OK)
        throw std::runtime_error(std::string(what) + ": " + support::Narrow(vorna::hex_text(result)));
}

} // namespace bench
