// Where the configuration of logging is read, and what its values mean.
#include "common/log/LogConfiguration.h"

#include "support/Support.h"

using namespace vorna;

namespace {

constexpr char PROGRAM[] = "VORNATEST.Logging";
constexpr wchar_t KEY[] = L"SOFTWARE\\Ostrevane\\QXKeldan\\Logging";

} // namespace

TEST(LogConfigurationTest, Values) {
    const struct {
        const char* value;
        unsigned mode;
        unsigned level;
        DWORD kilobytes;
        const char* path;
    } cases[] = {
        {"console,3", 1, 3, 0, ""},
        {"Console,x", 1, 0, 0, ""},
        {"debug,300", 2, 44, 0, ""},
        {"FILE,C:\\x.log,5", 4, 5, 0, "C:\\x.log"},
        {"file,C:\\x y.log,100,8", 8, 8, 100, "C:\\x y.log"},
        {"file,C:\\x.log,many,8", 8, 8, 0, "C:\\x.log"},
        {"file,C:\\x.log,", 4, 0, 0, "C:\\x.log"},
        {"file,C:\\x.log", 0, 0, 0, ""},
        {"debug", 0, 0, 0, ""},
        {"", 0, 0, 0, ""},
        {",5", 0, 0, 0, ""},
        {"debugger,5", 0, 0, 0, ""},
        {"deb,5", 0, 0, 0, ""},
    };
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.value);
        LogConfiguration configuration;
        configuration.Parse(expected.value);
        EXPECT_EQ(expected.mode, configuration.mode);
        EXPECT_EQ(expected.level, configuration.level);
        EXPECT_EQ(expected.kilobytes, configuration.kilobytes);
        EXPECT_STREQ(expected.path, configuration.path);
    }
}

TEST(LogConfigurationTest, PlacesInTheirOrder) {
    constexpr wchar_t PRODUCT[] = L"SOFTWARE\\Ostrevane\\QXKeldan";
    RegDeleteKeyW(HKEY_LOCAL_MACHINE, KEY);
    LogConfiguration configuration;
    support::RegistryValue last(PRODUCT, L"Logging", L"debug,1");
    EXPECT_TRUE(configuration.Read(PROGRAM));
    EXPECT_EQ(1, configuration.level) << "without the key, the value of the key above counts";
    {
        support::RegistryValue other(KEY, L"VORNATEST.Other", L"debug,2");
        EXPECT_FALSE(configuration.Read(PROGRAM)) << "with the key, the value of the key above does not count";
        support::RegistryValue standard(KEY, L"", L"debug,3");
        EXPECT_TRUE(configuration.Read(PROGRAM));
        EXPECT_EQ(3, configuration.level);
        support::RegistryValue own(KEY, support::Wide(PROGRAM), L"debug,4");
        EXPECT_TRUE(configuration.Read(PROGRAM));
        EXPECT_EQ(4, configuration.level);
        support::RegistryValue longest(KEY, support::Wide(PROGRAM), L"debug,5" + std::wstring(253, L' '));
        EXPECT_TRUE(configuration.Read(PROGRAM));
        EXPECT_EQ(5, configuration.level);
        support::RegistryValue longer(KEY, support::Wide(PROGRAM), L"debug,6" + std::wstring(254, L' '));
        EXPECT_FALSE(configuration.Read(PROGRAM));
        DWORD number = 7;
        RegSetKeyValueW(HKEY_LOCAL_MACHINE, KEY, support::Wide(PROGRAM).c_str(), REG_DWORD, &number, sizeof number);
        EXPECT_FALSE(configuration.Read(PROGRAM)) << "a number is no string";
    }
    RegDeleteKeyW(HKEY_LOCAL_MACHINE, KEY);
}
