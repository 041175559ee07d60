#include "support/ChildProcess.h"

#include "support/Support.h"

#include <fstream>
#include <stdexcept>

namespace support {

ChildProcess::ChildProcess(std::wstring command, const Environment& environment) {
    for (const auto& [name, value] : environment)
        SetEnvironmentVariableW(name, value.c_str());
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    const BOOL started =
        CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup, &process);
    for (const auto& [name, value] : environment)
        SetEnvironmentVariableW(name, nullptr);
    if (!started)
        throw std::runtime_error("cannot start " + Narrow(command));
    process_.reset(process.hProcess);
    const vorna::unique_handle thread(process.hThread);
}

ChildProcess ChildProcess::OfTest(const std::wstring& test, const Environment& environment) {
    wchar_t program[MAX_PATH];
    GetModuleFileNameW(nullptr, program, MAX_PATH);
    return ChildProcess(L"\"" + std::wstring(program) +
                            L"\" --gtest_brief=1 --gtest_also_run_disabled_tests --gtest_filter=" + test,
                        environment);
}

bool ChildProcess::Running() const {
    return WaitForSingleObject(process_.get(), 0) == WAIT_TIMEOUT;
}

DWORD ChildProcess::Wait() const {
    DWORD code = ~0u;
    WaitForSingleObject(process_.get(), INFINITE);
    GetExitCodeProcess(process_.get(), &code);
    return code;
}

void ChildProcess::Kill() const {
    TerminateProcess(process_.get(), 1);
    WaitForSingleObject(process_.get(), INFINITE);
}

bool KillHost(const std::wstring& dataFolder) {
    DWORD id = 0;
    std::ifstream(std::filesystem::path(dataFolder) / "host.pid") >> id;
    const vorna::unique_handle process(OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, id));
    return process && TerminateProcess(process.get(), 9) &&
           WaitForSingleObject(process.get(), INFINITE) == WAIT_OBJECT_0;
}

DWORD RunHost(const std::wstring& option) {
    return ChildProcess(L"\"" + (BinFolder() / "QXKeldanHost.exe").wstring() + L"\" " + option).Wait();
}

} // namespace support
