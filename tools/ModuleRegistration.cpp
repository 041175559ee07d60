#include "tools/ModuleRegistration.h"

#include "common/com/results.h"
#include "common/com/unique_any.h"
#include "tools/Console.h"

#include <windows.h>

#include <iterator>
#include <optional>
#include <string>

namespace vornactl {

namespace {

constexpr DWORD PROGRAM_WAIT_MS = 60'000;

struct ModuleFile {
    const wchar_t* name;
    bool mandatory;
};

// The platform first: the component finds it complete.
constexpr ModuleFile MODULES[] = {{L"QXKeldan.dll", false}, {L"QXKeldanHost.exe", false}, {L"Vorna.dll", true}};

void CallLibrary(const std::wstring& path, const char* entryPoint, const std::wstring& doing) {
    vorna::unique_library library(LoadLibraryExW(path.c_str(), nullptr, LOAD_WITH_ALTERED_SEARCH_PATH));
    if (!library)
        throw Failure(vorna::result_from_last_error(), doing);
    const FARPROC address = GetProcAddress(library.get(), entryPoint);
    if (!address)
        throw Failure(vorna::result_from_last_error(), doing);
    // By way of void*: the compiler takes no direct cast between functions of different kinds for meant.
    const auto function = reinterpret_cast<HRESULT(STDAPICALLTYPE*)()>(reinterpret_cast<void*>(address));
    if (const HRESULT result = function(); FAILED(result))
        throw Failure(result, doing);
}

void RunProgram(const std::wstring& path, const wchar_t* argument, const std::wstring& doing) {
    std::wstring line = L"\"" + path + L"\" " + argument;
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION information{};
    if (!CreateProcessW(path.c_str(), line.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr, nullptr,
                        &startup, &information))
        throw Failure(vorna::result_from_last_error(), doing);
    const vorna::unique_handle process(information.hProcess);
    const vorna::unique_handle thread(information.hThread);
    if (WaitForSingleObject(process.get(), PROGRAM_WAIT_MS) != WAIT_OBJECT_0)
        throw Failure(HRESULT_FROM_WIN32(ERROR_TIMEOUT), doing, L"The program did not end within a minute.");
    DWORD exitCode = 1;
    GetExitCodeProcess(process.get(), &exitCode);
    if (exitCode != 0)
        throw Failure(E_FAIL, doing, L"The program ended with exit code " + std::to_wstring(exitCode) + L".");
}

void Call(const std::filesystem::path& path, bool registering) {
    const std::wstring doing = (registering ? L"registering " : L"unregistering ") + path.wstring();
    if (path.extension() == L".exe")
        RunProgram(path.wstring(), registering ? L"/regserver" : L"/unregserver", doing);
    else
        CallLibrary(path.wstring(), registering ? "DllRegisterServer" : "DllUnregisterServer", doing);
}

} // namespace

void RegisterModules(const std::filesystem::path& folder) {
    for (const ModuleFile& module : MODULES) {
        const auto path = folder / module.name;
        std::error_code ignored;
        if (!std::filesystem::exists(path, ignored)) {
            if (module.mandatory)
                throw Failure(HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), L"registering " + path.wstring());
            Console::Line(L"not there: " + path.wstring());
            continue;
        }
        Call(path, true);
        Console::Line(L"registered: " + path.wstring());
    }
}

void UnregisterModules(const std::filesystem::path& folder) {
    std::optional<Failure> first;
    for (auto module = std::rbegin(MODULES); module != std::rend(MODULES); ++module) {
        const auto path = folder / module->name;
        std::error_code ignored;
        try {
            if (!std::filesystem::exists(path, ignored)) {
                if (module->mandatory)
                    throw Failure(HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), L"unregistering " + path.wstring());
                continue;
            }
            Call(path, false);
            Console::Line(L"unregistered: " + path.wstring());
        } catch (const Failure& failed) {
            if (!first)
                first = failed;
        }
    }
    if (first)
        throw *first;
}

std::filesystem::path ProgramFolder() {
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
        if (length == 0)
            throw Failure(vorna::result_from_last_error(), L"finding this program's folder");
        if (length < path.size()) {
            path.resize(length);
            return std::filesystem::path(path).parent_path();
        }
        path.resize(path.size() * 2);
    }
}

} // namespace vornactl
