// What every test program shares: folders of a test's own, the reference platform, the component in a folder.
#pragma once

#include "common/com/com_ptr.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <filesystem>
#include <string>
#include <string_view>

// Compares results in the notation people look them up by.
#define EXPECT_HR(expected, expression) EXPECT_PRED_FORMAT2(::support::SameResult, expected, expression)
#define ASSERT_HR(expected, expression) ASSERT_PRED_FORMAT2(::support::SameResult, expected, expression)

namespace support {

testing::AssertionResult SameResult(const char* expectedText, const char* actualText, HRESULT expected, HRESULT actual);

// For messages and comparisons that print: UTF-8 of a wide text.
std::string Narrow(std::wstring_view text);
std::wstring Wide(std::string_view text);

// The folder of the test program, where the modules under test lie too.
std::filesystem::path BinFolder();

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
    std::wstring key_;
    std::wstring name_;
    bool existed_ = false;
    std::wstring before_;
};

// Registers QXKeldan.dll and, where it was built, QXKeldanHost.exe from the program's folder; once a program.
void RegisterPlatform();

// Copies Vorna.dll into the folder and registers the copy, so that all archives lie below the folder.
void InstallComponent(const std::filesystem::path& folder);

// The platform's data folder (stored models, registrations), for the life of the object.
class PlatformData : public RegistryValue {
  public:
    explicit PlatformData(const std::filesystem::path& folder)
        : RegistryValue(L"SOFTWARE\\Ostrevane\\QXKeldan", L"DataFolder", folder.wstring()) {}
};

// A service document; identities are portID, serviceId, serviceURI.
std::wstring ServiceDocument(std::wstring_view portId, std::wstring_view serviceId, std::wstring_view serviceUri);

} // namespace support
