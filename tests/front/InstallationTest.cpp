// The module in folders and processes that are not as usual.
#include "ComponentTest.h"

#include "common/com/registry.h"
#include "common/log/Logging.h"
#include "common/services/Directories.h"

#include <thread>

namespace {

constexpr wchar_t SERVER_KEY[] = L"CLSID\\{E7A8F1C4-0B6D-4F3B-8C55-2D9E64B7A913}\\InprocServer32";

} // namespace

TEST_F(ComponentTest, FolderWithApostrophesAndPercentSigns) {
    const auto folder = folder_.Path() / "O'Brien's 100%MODULE%";
    std::filesystem::create_directory(folder);
    support::InstallComponent(folder);
    const auto module = (folder / "Vorna.dll").wstring();
    EXPECT_EQ(module, vorna::registry_text(HKEY_CLASSES_ROOT, SERVER_KEY, nullptr));
    EXPECT_EQ(L"Free", vorna::registry_text(HKEY_CLASSES_ROOT, SERVER_KEY, L"ThreadingModel"));
    EXPECT_EQ(folder.wstring() + L"\\", VORNAUTILITY::GetComponentDirectory());
    vorna::com_ptr<IXDMAccessEx> object;
    EXPECT_HR(S_OK, vorna::PlatformServices::CreateInstance(vorna::PROGID_VORNA, nullptr, object));
    EXPECT_NE(nullptr, GetModuleHandleW(module.c_str()));
    object.reset();
    EXPECT_TRUE(vorna::CPComPtr<>::RegisterComponent(module.c_str(), false));
    EXPECT_EQ(std::nullopt, vorna::registry_text(HKEY_CLASSES_ROOT, SERVER_KEY, nullptr));
}

TEST_F(ComponentTest, UnregisteringTwiceSucceeds) {
    const auto module = (folder_.Path() / "Vorna.dll").wstring();
    for (int times = 0; times < 2; ++times)
        EXPECT_TRUE(vorna::CPComPtr<>::RegisterComponent(module.c_str(), false));
}

TEST_F(ComponentTest, ThreadsDoNotStartLogging) {
    const auto log = folder_.Path() / "a.log";
    const support::RegistryValue value(L"SOFTWARE\\Ostrevane\\QXKeldan\\Logging", L"QXKELDAN.Vorna",
                                       L"file," + log.wstring() + L",4");
    std::thread([] {}).join();
    EXPECT_FALSE(std::filesystem::exists(log));
    vorna::com_ptr<IXDMAccessEx> object;
    EXPECT_HR(S_OK, vorna::PlatformServices::CreateInstance(vorna::PROGID_VORNA, nullptr, object));
    EXPECT_TRUE(std::filesystem::exists(log)) << "the module does not read this setting";
}
