#include "common/services/platformservices.h"

#include "common/com/unique_any.h"
#include "support/LogLines.h"

#include <gmock/gmock.h>

#include <optional>

using namespace vorna;
using testing::ElementsAre;
using testing::EndsWith;

namespace {

constexpr wchar_t FORCE_KEY[] = L"SOFTWARE\\Ostrevane\\QXKeldan\\ForceToOutOfProc";
// An in-process class of the system that lives in any apartment.
constexpr wchar_t REGISTERED[] = L"Msxml2.DOMDocument";
constexpr wchar_t ON_DEMAND[] = L"VORNATEST.Server";
constexpr char CREATE[] = "PlatformServices::CreateInstance() ";
constexpr char REGISTER[] = "CPComPtr<>::RegisterComponent | ";

std::string Create(const char* rest) {
    return std::string(CREATE) + rest;
}

// Only a proxy has this interface.
bool LivesElsewhere(const com_ptr<IUnknown>& instance) {
    return static_cast<bool>(instance.try_as<IUnknown>(IID_IClientSecurity));
}

class PlatformServicesTest : public testing::Test {
  protected:
    ~PlatformServicesTest() override { SetEnvironmentVariableA("VORNA_TEST_SERVER", nullptr); }

    void LogAt(int level) { log_.emplace(level); }
    std::vector<std::string> Lines() const { return log_->Read(); }
    std::wstring Server(const char* behaviour) {
        SetEnvironmentVariableA("VORNA_TEST_SERVER", behaviour);
        return (support::BinFolder() / "test_server.dll").wstring();
    }

    support::TestFolder folder_;
    std::optional<support::LogLines> log_;
};

} // namespace

TEST_F(PlatformServicesTest, EachStepIsLogged) {
    RegDeleteKeyW(HKEY_LOCAL_MACHINE, FORCE_KEY);
    LogAt(8);
    com_ptr<IUnknown> instance;
    EXPECT_HR(S_OK, PlatformServices::CreateInstance(REGISTERED, nullptr, instance, IID_IUnknown));
    EXPECT_TRUE(instance);
    EXPECT_THAT(Lines(), ElementsAre(Create("Entering"), "CI 1", "CI 2", "CI 3", Create("CLSIDFromProgID succeeded"),
                                     Create("could not find forcekey"), Create("returning SUCCESS.")));
}

TEST_F(PlatformServicesTest, AForcedProgIdIsCreatedOutOfProcessOnly) {
    LogAt(8);
    support::RegistryValue other(FORCE_KEY, L"VORNATEST.Other", L"");
    com_ptr<IUnknown> instance;
    EXPECT_HR(S_OK, PlatformServices::CreateInstance(REGISTERED, nullptr, instance, IID_IUnknown));
    {
        support::RegistryValue forced(FORCE_KEY, REGISTERED, L"");
        // The system may have a surrogate process for the class, or none.
        HRESULT result = PlatformServices::CreateInstance(REGISTERED, nullptr, instance, IID_IUnknown);
        EXPECT_EQ(SUCCEEDED(result), static_cast<bool>(instance));
        EXPECT_TRUE(FAILED(result) || LivesElsewhere(instance));
    }
    EXPECT_HR(S_OK, PlatformServices::CreateInstance(REGISTERED, nullptr, instance, IID_IUnknown));
    EXPECT_FALSE(LivesElsewhere(instance));
    const auto lines = Lines();
    ASSERT_EQ(24u, lines.size());
    EXPECT_EQ(Create("found forcekey"), lines[5]);
    EXPECT_EQ(Create("string value in forcekey not found"), lines[6]);
    EXPECT_EQ(Create("found forcekey"), lines[13]);
    EXPECT_EQ(Create("found string value in forcekey"), lines[14]);
    RegDeleteKeyW(HKEY_LOCAL_MACHINE, FORCE_KEY);
}

TEST_F(PlatformServicesTest, AnUnknownProgIdFailsWithTheResultOfItsLookup) {
    LogAt(4);
    com_ptr<IUnknown> instance;
    EXPECT_HR(CO_E_CLASSSTRING, PlatformServices::CreateInstance(L"VORNATEST.None", nullptr, instance, IID_IUnknown));
    EXPECT_FALSE(instance);
    EXPECT_THAT(Lines(),
                ElementsAre("CI 1", "CI 2", "CI 3", Create("unable to resolve CLSID"), Create("returning FAIL.")));
}

TEST_F(PlatformServicesTest, AModuleIsRegisteredOnDemand) {
    LogAt(3);
    const std::wstring module = Server("ok");
    com_ptr<IUnknown> instance;
    EXPECT_HR(S_OK, PlatformServices::CreateInstance(ON_DEMAND, module.c_str(), instance, IID_IUnknown));
    EXPECT_TRUE(instance);
    EXPECT_THAT(Lines(), ElementsAre("CI 1", "CI 2", "CI 3", Create("CLSIDFromProgID failed"),
                                     REGISTER + support::Narrow(module) + " | Register", "CI 4 ret: -- 00000000"));
    // A ProgID that is known is not registered again.
    EXPECT_HR(S_OK, PlatformServices::CreateInstance(ON_DEMAND, module.c_str(), instance, IID_IUnknown));
    EXPECT_EQ(9u, Lines().size());
    EXPECT_TRUE(CPComPtr<>::RegisterComponent(module.c_str(), false));
    EXPECT_FALSE(CPComPtr<>::RegisterComponent(module.c_str(), false)) << "there is nothing left to remove";
}

TEST_F(PlatformServicesTest, AModuleThatDoesNotRegisterIsReported) {
    LogAt(2);
    const std::wstring module = Server("fail");
    const std::string name = support::Narrow(module);
    EXPECT_FALSE(CPComPtr<>::RegisterComponent(module.c_str(), true));
    Server("fault");
    EXPECT_FALSE(CPComPtr<>::RegisterComponent(module.c_str(), true));
    EXPECT_FALSE(CPComPtr<>::RegisterComponent((folder_.Path() / "none.DLL").c_str(), true));
    EXPECT_FALSE(CPComPtr<>::RegisterComponent(L"kernel32.dll", true));
    EXPECT_THAT(Lines(), ElementsAre(REGISTER + ("COM Registration Failed!!! | module=" + name),
                                     REGISTER + ("DLL COM Registration Threw an Exception!!! | module=" + name),
                                     REGISTER + std::string("LoadLibrary Failed!!!"),
                                     REGISTER + std::string("GetProcAddress Failed!!!")));
}

TEST_F(PlatformServicesTest, AProgramRegistersItself) {
    LogAt(2);
    // In a folder with a blank, in another letter case.
    const auto folder = folder_.Path() / "a b";
    std::filesystem::create_directory(folder);
    std::filesystem::copy_file(support::BinFolder() / "test_registrar.exe", folder / "R.EXE");
    EXPECT_TRUE(CPComPtr<>::RegisterComponent((folder / "R.EXE").c_str(), true));
    EXPECT_THAT(Lines(), ElementsAre());
    EXPECT_FALSE(CPComPtr<>::RegisterComponent((folder / "R.EXE").c_str(), false));
    EXPECT_FALSE(CPComPtr<>::RegisterComponent((folder / "none.exe").c_str(), true));
    EXPECT_FALSE(CPComPtr<>::RegisterComponent((folder / "none.txt").c_str(), true));
    const auto lines = Lines();
    ASSERT_EQ(3u, lines.size());
    EXPECT_THAT(lines[0], EndsWith("a b\\R.EXE | 3"));
}

TEST_F(PlatformServicesTest, AProgramThatHangsIsReportedAndNotEnded) {
    LogAt(2);
    unique_handle hang(CreateEventA(nullptr, TRUE, FALSE, "VORNATEST.Hang"));
    unique_handle hanging(CreateEventA(nullptr, TRUE, FALSE, "VORNATEST.Hanging"));
    unique_handle ended(CreateEventA(nullptr, TRUE, FALSE, "VORNATEST.Ended"));
    const std::wstring module = (support::BinFolder() / "test_registrar.exe").wstring();
    const ULONGLONG before = GetTickCount64();
    EXPECT_FALSE(CPComPtr<>::RegisterComponent(module.c_str(), true));
    EXPECT_GE(GetTickCount64() - before, 3400u);
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(hanging.get(), 0));
    EXPECT_THAT(Lines(), ElementsAre(REGISTER + ("COM Registration Hung!!! | module=" + support::Narrow(module))));
    SetEvent(hang.get());
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(ended.get(), 10000)) << "the program was ended";
}

TEST_F(PlatformServicesTest, ArgumentsAreChecked) {
    EXPECT_HR(E_POINTER, PlatformServices::CreateInstance(REGISTERED, nullptr, IID_IUnknown, nullptr));
    com_ptr<IUnknown> instance;
    EXPECT_TRUE(FAILED(PlatformServices::CreateInstance(nullptr, nullptr, instance, IID_IUnknown)));
    EXPECT_FALSE(CPComPtr<>::RegisterComponent(nullptr, true));
}
