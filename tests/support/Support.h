// What every test program shares: folders of a test's own, the reference platform, the component in a folder.
#pragma once

#include "common/com/com_ptr.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

// Compares results in the notation people look them up by.
#define EXPECT_HR(expected, expression) EXPECT_PRED_FORMAT2(::support::SameResult, expected, expression)
#define ASSERT_HR(expected, expression) ASSERT_PRED_FORMAT2(::support::SameResult, expected, expression)

namespace support {

testing::AssertionResult SameResult(const char* expectedText, const char* actualText, HRESULT expected, HRESULT actual);

// For messages and comparisons that print: UTF-8 of a wide text.
std::string Narrow(std::wstring_view text);
std::wstring Wide(std::string_view text);
std::wstring Repeated(std::size_t count, std::wstring_view text);

// The folder of the test program, where the modules under test lie too.
std::filesystem::path BinFolder();

std::string ReadFileBytes(const std::filesystem::path& path);
void WriteFileBytes(const std::filesystem::path& path, std::string_view bytes);
// Inverts a bit of the byte; a second call restores it.
void DamageFile(const std::filesystem::path& path, size_t offset);
// The names of what is directly in the folder, sorted.
std::vector<std::wstring> FilesIn(const std::filesystem::path& folder);

// The local time in, or for a negative number before, that many seconds.
SYSTEMTIME FromNow(int seconds);
SYSTEMTIME At(int year, int month, int day, int hour = 0, int minute = 0, int second = 0);

// Runs the function on a thread of its own in an apartment of the given kind (COINIT_...), to its end.
void RunInApartment(DWORD kind, const std::function<void()>& function);

// A fresh folder that is removed with the object. Its path is short, and unique in this prefix.
class TestFolder {
  public:
    TestFolder();
    ~TestFolder();
    TestFolder(const TestFolder&) = delete;
    TestFolder& operator=(const TestFolder&) = delete;
    const std::filesystem::path& Path() const { return path_; }

  private:
    std::filesystem::path path_;
};

// A value under a key of HKEY_LOCAL_MACHINE, put back as it was (or removed) with the object.
class RegistryValue {
  public:
    RegistryValue(std::wstring key, std::wstring name, std::wstring_view text);
    ~RegistryValue();
    RegistryValue(const RegistryValue&) = delete;
    RegistryValue& operator=(const RegistryValue&) = delete;

  private:
    void Set(const std::wstring& text);

    std::wstring key_;
    std::wstring name_;
    bool existed_ = false;
    std::wstring before_;
};

// Registers QXKeldan.dll and, where it was built, QXKeldanHost.exe from the program's folder; once a program.
void RegisterPlatform();

// An object of a class of the platform or the component, created in this process as clients create it.
template <typename Interface>
vorna::com_ptr<Interface> Create(const wchar_t* progId) {
    RegisterPlatform();
    CLSID classId{};
    vorna::com_ptr<Interface> object;
    EXPECT_HR(S_OK, CLSIDFromProgID(progId, &classId));
    EXPECT_HR(S_OK, CoCreateInstance(classId, nullptr, CLSCTX_INPROC_SERVER, __uuidof(Interface), object.put_void()));
    return object;
}

// Copies Vorna.dll into the folder and registers the copy, so that all archives lie below the folder.
void InstallComponent(const std::filesystem::path& folder);

// The platform's data folder (stored models, registrations), for the life of the object.
class PlatformData : public RegistryValue {
  public:
    explicit PlatformData(const std::filesystem::path& folder)
        : RegistryValue(L"SOFTWARE\\Ostrevane\\QXKeldan", L"DataFolder", folder.wstring()) {}
};

// A service document. The identities are portID, serviceId, serviceURI.
std::wstring ServiceDocument(std::wstring_view portId, std::wstring_view serviceId, std::wstring_view serviceUri);

// A service object of the platform.
vorna::com_ptr<IUnknown> PlatformService(const std::wstring& portId, const std::wstring& serviceId,
                                         const std::wstring& serviceUri);

} // namespace support
