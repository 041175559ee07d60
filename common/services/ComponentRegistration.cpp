// CPComPtr<>::RegisterComponent: registration of a server, either a DLL or a program.
#include "common/com/module_call.h"
#include "common/com/paths.h"
#include "common/com/unique_any.h"
#include "common/log/Logging.h"
#include "common/services/platformservices.h"

#include <string>

namespace vorna {

namespace {

constexpr DWORD WAIT_STEP = 500;
constexpr int WAIT_STEPS = 7;

struct Module {
    std::wstring path;
    // In lower case; the file name on the disk or, if the file does not exist, the given path.
    std::wstring name;
};

Module LookUp(const wchar_t* modulePath) {
    Module module{modulePath, modulePath};
    WIN32_FIND_DATAW found;
    if (unique_find search(FindFirstFileW(modulePath, &found)); search) {
        module.name = found.cFileName;
        // LOAD_WITH_ALTERED_SEARCH_PATH requires a full path.
        if (std::wstring whole = full_path(modulePath); !whole.empty())
            module.path = std::move(whole);
    }
    CharLowerBuffW(module.name.data(), static_cast<DWORD>(module.name.size()));
    return module;
}

bool RegisterLibrary(const Module& module, bool registering) {
    module_answer answer{};
    try {
        answer = call_module(module.path, registering ? "DllRegisterServer" : "DllUnregisterServer");
    } catch (...) {
        VORNA_LOG(LOG_ERROR, "CPComPtr<>::RegisterComponent | DLL COM Registration Threw an Exception!!! | module=%S",
                  module.path.c_str());
        return false;
    }
    if (SUCCEEDED(answer.result))
        return true;
    if (answer.step == module_step::load)
        VORNA_LOG(LOG_ERROR, "CPComPtr<>::RegisterComponent | LoadLibrary Failed!!!");
    else if (answer.step == module_step::find)
        VORNA_LOG(LOG_ERROR, "CPComPtr<>::RegisterComponent | GetProcAddress Failed!!!");
    else
        VORNA_LOG(LOG_WARNING, "CPComPtr<>::RegisterComponent | COM Registration Failed!!! | module=%S",
                  module.path.c_str());
    return false;
}

bool RegisterProgram(const Module& module, bool registering) {
    std::wstring command = L"\"" + module.path + L"\"" + (registering ? L" /regserver" : L" /unregserver");
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION started{};
    if (!CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, DETACHED_PROCESS | NORMAL_PRIORITY_CLASS,
                        nullptr, nullptr, &startup, &started)) {
        VORNA_LOG(LOG_ERROR, "CPComPtr<>::RegisterComponent | CreateProcess Failed!!! | module=%S | %d",
                  module.path.c_str(), GetLastError());
        return false;
    }
    unique_handle process(started.hProcess);
    unique_handle thread(started.hThread);
    bool ended = false;
    for (int step = 0; step < WAIT_STEPS && !ended; ++step)
        ended = WaitForSingleObject(process.get(), WAIT_STEP) == WAIT_OBJECT_0;
    if (!ended) {
        VORNA_LOG(LOG_WARNING, "CPComPtr<>::RegisterComponent | COM Registration Hung!!! | module=%S",
                  module.path.c_str());
        return false;
    }
    DWORD code = 1;
    GetExitCodeProcess(process.get(), &code);
    if (code != 0) {
        VORNA_LOG(LOG_WARNING,
                  "CPComPtr<>::RegisterComponent | COM Registration - exited with a failure code!!! | module=%S | %d",
                  module.path.c_str(), code);
        return false;
    }
    return true;
}

} // namespace

bool CPComPtr<void>::RegisterComponent(const wchar_t* modulePath, bool registering) {
    if (!modulePath)
        return false;
    VORNA_LOG(LOG_NOTICE, "CPComPtr<>::RegisterComponent | %S | %s", modulePath,
              registering ? "Register" : "UnRegister");
    try {
        const Module module = LookUp(modulePath);
        if (module.name.ends_with(L".dll"))
            return RegisterLibrary(module, registering);
        if (module.name.ends_with(L".exe"))
            return RegisterProgram(module, registering);
        VORNA_LOG(LOG_ERROR, "CPComPtr<>::RegisterComponent | neither a .dll nor an .exe | module=%S", modulePath);
    } catch (...) {
        VORNA_LOG(LOG_ERROR, "CPComPtr<>::RegisterComponent | Unknown Exception Occured | module=%S", modulePath);
    }
    return false;
}

} // namespace vorna
