#include "support/Support.h"

#include "QXKeldan.h"
#include "common/com/bstr.h"
#include "common/com/unique_any.h"
#include "common/services/platformservices.h"
#include "support/ChildProcess.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <thread>

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

std::wstring Repeated(std::size_t count, std::wstring_view text) {
    std::wstring all;
    while (count-- > 0)
        all += text;
    return all;
}

std::filesystem::path BinFolder() {
    wchar_t path[MAX_PATH];
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    return std::filesystem::path(path).parent_path();
}

std::string ReadFileBytes(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void WriteFileBytes(const std::filesystem::path& path, std::string_view bytes) {
    std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

void DamageFile(const std::filesystem::path& path, size_t offset) {
    std::string bytes = ReadFileBytes(path);
    bytes.at(offset) = static_cast<char>(bytes.at(offset) ^ 0x40);
    std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
    file.seekp(static_cast<std::streamoff>(offset));
    file.put(bytes[offset]);
}

std::vector<std::wstring> FilesIn(const std::filesystem::path& folder) {
    std::vector<std::wstring> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        names.push_back(entry.path().filename().wstring());
    std::sort(names.begin(), names.end());
    return names;
}

SYSTEMTIME FromNow(int seconds) {
    SYSTEMTIME local{};
    FILETIME file{};
    GetLocalTime(&local);
    SystemTimeToFileTime(&local, &file);
    ULARGE_INTEGER ticks{{file.dwLowDateTime, file.dwHighDateTime}};
    ticks.QuadPart += static_cast<ULONGLONG>(seconds * 10'000'000LL);
    file = {ticks.LowPart, ticks.HighPart};
    FileTimeToSystemTime(&file, &local);
    return local;
}

SYSTEMTIME At(int year, int month, int day, int hour, int minute, int second) {
    const auto word = [](int value) { return static_cast<WORD>(value); };
    return {word(year), word(month), 0, word(day), word(hour), word(minute), word(second), 0};
}

void RunInApartment(DWORD kind, const std::function<void()>& function) {
    std::thread([&] {
        CoInitializeEx(nullptr, kind);
        function();
        CoUninitialize();
    }).join();
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
    Set(std::wstring(text));
}

RegistryValue::~RegistryValue() {
    if (existed_)
        Set(before_);
    else
        RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, key_.c_str(), name_.c_str());
}

void RegistryValue::Set(const std::wstring& text) {
    RegSetKeyValueW(HKEY_LOCAL_MACHINE, key_.c_str(), name_.c_str(), REG_SZ, text.c_str(),
                    static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
}

void RegisterPlatform() {
    static const bool once = [] {
        CallExport(BinFolder() / "QXKeldan.dll", "DllRegisterServer");
        if (std::filesystem::exists(BinFolder() / "QXKeldanHost.exe") && RunHost(L"/regserver") != 0)
            throw std::runtime_error("QXKeldanHost.exe does not register itself");
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

vorna::com_ptr<IUnknown> PlatformService(const std::wstring& portId, const std::wstring& serviceId,
                                         const std::wstring& serviceUri) {
    const auto factory = Create<IZEBServiceFactory>(vorna::PROGID_SERVICE_FACTORY);
    vorna::com_ptr<IUnknown> service;
    EXPECT_HR(S_OK,
              factory->CreateService(vorna::bstr(ServiceDocument(portId, serviceId, serviceUri)).get(), service.put()));
    return service;
}

} // namespace support
