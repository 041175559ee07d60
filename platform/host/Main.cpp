// QXKeldanHost.exe: the out-of-process half of the platform.
//
//   /regserver, /unregserver   registration for the whole machine
//   /stop                      asks a running host to end and waits for it
//   -Embedding                 passed by COM when it starts the program; the same as no argument
//
// Exit code 0: success. The program has no user interface.
#include "common/com/scope_exit.h"
#include "common/com/text_forms.h"
#include "common/com/unique_any.h"
#include "platform/data/DataFolder.h"
#include "platform/host/Host.h"
#include "platform/host/HostSignals.h"
#include "platform/hosting/Report.h"

#include <objbase.h>
#include <shellapi.h>

#include <string>

namespace {

std::filesystem::path Folder() {
    return keldan::DataFolder::Configured().Path();
}

// The option without its dash or slash, in lower case; empty if there is none.
std::wstring Option() {
    int count = 0;
    vorna::unique_local_memory arguments(reinterpret_cast<HLOCAL>(CommandLineToArgvW(GetCommandLineW(), &count)));
    if (!arguments || count < 2)
        return {};
    std::wstring option = reinterpret_cast<wchar_t**>(arguments.get())[1];
    if (!option.empty() && (option.front() == L'-' || option.front() == L'/'))
        option.erase(0, 1);
    CharLowerW(option.data());
    return option;
}

int Run() {
    const std::wstring option = Option();
    if (option == L"stop")
        return keldan::HostSignals::StopHost(Folder()) ? 0 : 1;
    if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)))
        return 1;
    vorna::scope_exit leave([] { CoUninitialize(); });
    keldan::Host host(Folder());
    if (option == L"regserver")
        return SUCCEEDED(host.Register()) ? 0 : 1;
    if (option == L"unregserver")
        return SUCCEEDED(host.Unregister()) ? 0 : 1;
    if (option.empty() || option == L"embedding")
        return host.Run();
    return 2;
}

} // namespace

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR, int) {
    try {
        return Run();
    } catch (...) {
        keldan::Report(L"the host cannot run: " + vorna::hex_text(vorna::caught_result()));
        return 1;
    }
}
