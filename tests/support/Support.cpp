#include "support/Support.h"

#include "common/com/unique_any.h"

#include <atomic>
#include <cstdio>
#include <stdexcept>

namespace support {

namespace {

void CallExport(const std::filesystem::path& module, const char* name) {
    vorna::unique_library library(LoadLibraryW(module.c_str()));
    auto function = reinterpret_cast<HRESULT(WINAPI*)()>(
        reinterpret_cast<void*>(library ? GetProcAddress(library.get(), name) : nullptr));
    if (!function)
        throw std::runtime_error("no " + std::string(name) + " in " + module.string());
    if (HRESULT result = function(); FAILED(result))
        throw std::runtime_error(module.string() + ": " + name + " failed");
}

void RunToEnd(std::wstring command) {
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (!CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process))
        throw std::runtime_error("cannot start " + Narrow(command));
    vorna::unique_handle handle(process.hProcess);
    vorna::unique_handle thread(process.hThread);
    WaitForSingleObject(handle.get(), INFINITE);
    DWORD code = 1;
    GetExitCodeProcess(handle.get(), &code);
    if (code != 0)
        throw std::runtime_error(Narrow(command) + " ended with " + std::to_string(code));
}

std::string UniqueName() {
    static std::atomic<int> made{0};
    return "vorna-" + std::to_string(GetCurrentProcessId()) + "-" + std::to_string(GetTickCount()) + "-" +
           std::to_string(++made);
}

} // namespace

testing::AssertionResult SameResult(const char*, const char* actualText, HRESULT expected, HRESULT actual) {
    if (expected == actual)
        return testing::AssertionSuccess();
    char text[128];
    std::snprintf(text, sizeof text, " is 0x%08lX, expected 0x%08lX", static_cast<unsigned long>(actual),
                  static_cast<unsigned long>(expected));
    return testing::AssertionFailure() << actualText << text;
}

std::string Narrow(std::wstring_view text) {
    int size =
        WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0, nullptr, nullptr);
    std::string narrow(static_cast<size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), narrow.data(), size, nullptr, nullptr);
    return narrow;
}

std::wstring Wide(std::string_view text) {
    int size = MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    std::wstring wide(static_cast<size_t>(size), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), wide.data(), size);
    return wide;
}

std::filesystem::path BinFolder() {
    wchar_t path[MAX_PATH];
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    return std::filesystem::path(path).parent_path();
}

TestFolder::TestFolder() : path_(std::filesystem::temp_directory_path() / UniqueName()) {
    std::filesystem::create_directories(path_);
}

TestFolder::~TestFolder() {
    // A module of the folder may still be loaded; what stays is removed with the prefix.
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

RegistryValue::RegistryValue(std::wstring key, std::wstring name, std::wstring_view text)
    : key_(std::move(key)), name_(std::move(name)) {
    wchar_t buffer[1024];
    DWORD size = sizeof buffer;
    existed_ = RegGetValueW(HKEY_LOCAL_MACHINE, key_.c_str(), name_.c_str(), RRF_RT_REG_SZ, nullptr, buffer, &size) ==
               ERROR_SUCCESS;
    if (existed_)
        before_ = buffer;
    std::wstring value(text);
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, key_.c_str(), name_.c_str(), REG_SZ, value.c_str(),
                    static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
}

RegistryValue::~RegistryValue() {
    if (existed_)
        RegSetKeyValueW(HKEY_LOCAL_MACHINE, key_.c_str(), name_.c_str(), REG_SZ, before_.c_str(),
                        static_cast<DWORD>((before_.size() + 1) * sizeof(wchar_t)));
    else
        RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, key_.c_str(), name_.c_str());
}

void RegisterPlatform() {
    static const bool once = [] {
        CallExport(BinFolder() / "QXKeldan.dll", "DllRegisterServer");
        if (auto host = BinFolder() / "QXKeldanHost.exe"; std::filesystem::exists(host))
            RunToEnd(L"\"" + host.wstring() + L"\" /regserver");
        return true;
    }();
    (void)once;
}

void InstallComponent(const std::filesystem::path& folder) {
    auto module = folder / "Vorna.dll";
    std::filesystem::copy_file(BinFolder() / "Vorna.dll", module, std::filesystem::copy_options::overwrite_existing);
    CallExport(module, "DllRegisterServer");
}

std::wstring ServiceDocument(std::wstring_view portId, std::wstring_view serviceId, std::wstring_view serviceUri) {
    std::wstring document = L"<service><portID>";
    document.append(portId).append(L"</portID><serviceId>").append(serviceId);
    document.append(L"</serviceId><serviceURI>").append(serviceUri);
    document.append(L"</serviceURI><additionalInfo><model>M1</model><address>10.0.0.7</address>"
                    L"<addressType>IP</addressType><friendlyName>Press 7</friendlyName></additionalInfo></service>");
    return document;
}

} // namespace support
