#include "tools/ModuleRegistration.h"

#include "common/com/com_server.h"
#include "common/com/module_call.h"
#include "common/com/unique_any.h"
#include "tools/Console.h"

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

// The platform first, because the component uses it.
constexpr ModuleFile MODULES[] = {{L"QXKeldan.dll", false}, {L"QXKeldanHost.exe", false}, {L"Vorna.dll", true}};

void CallLibrary(const std::wstring& path, const char* exportName, const std::wstring& action) {
    try {
        vorna::throw_if_failed(vorna::call_module(path, exportName).result);
    } catch (...) {
        throw Failure(vorna::caught_result(), action);
    }
}

void RunProgram(const std::wstring& path, const wchar_t* argument, const std::wstring& action) {
    std::wstring line = L"\"" + path + L"\" " + argument;
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION information{};
    if (!CreateProcessW(path.c_str(), line.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr, nullptr,
                        &startup, &information))
        throw Failure(vorna::result_from_last_error(), action);
    const vorna::unique_handle process(information.hProcess);
    const vorna::unique_handle thread(information.hThread);
    if (WaitForSingleObject(process.get(), PROGRAM_WAIT_MS) != WAIT_OBJECT_0)
        throw Failure(HRESULT_FROM_WIN32(ERROR_TIMEOUT), action, L"The program did not end within a minute.");
    DWORD exitCode = 1;
    GetExitCodeProcess(process.get(), &exitCode);
    if (exitCode != 0)
        throw Failure(E_FAIL, action, L"The program ended with exit code " + std::to_wstring(exitCode) + L".");
}

void Call(const std::filesystem::path& folder, const ModuleFile& module, bool registering) {
    const std::filesystem::path path = folder / module.name;
    const std::wstring action = (registering ? L"registering " : L"unregistering ") + path.wstring();
    std::error_code ignored;
    if (!std::filesystem::exists(path, ignored)) {
        if (module.mandatory)
            throw Failure(HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), action);
        if (registering)
            Console::Line(L"not there: " + path.wstring());
        return;
    }
    if (path.extension() == L".exe")
        RunProgram(path.wstring(), registering ? L"/regserver" : L"/unregserver", action);
    else
        CallLibrary(path.wstring(), registering ? "DllRegisterServer" : "DllUnregisterServer", action);
    Console::Line((registering ? L"registered: " : L"unregistered: ") + path.wstring());
}

} // namespace

void RegisterModules(const std::filesystem::path& folder) {
    for (const ModuleFile& module : MODULES)
        Call(folder, module, true);
}

void UnregisterModules(const std::filesystem::path& folder) {
    std::optional<Failure> first;
    for (auto module = std::rbegin(MODULES); module != std::rend(MODULES); ++module) {
        try {
            Call(folder, *module, false);
        } catch (const Failure& failure) {
            if (!first)
                first = failure;
        }
    }
    if (first)
        throw *first;
}

std::filesystem::path ProgramFolder() {
    return std::filesystem::path(vorna::this_module_path()).parent_path();
}

} // namespace vornactl
