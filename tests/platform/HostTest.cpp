#include "platform/HostTest.h"

#include "common/com/text_forms.h"
#include "common/com/unique_any.h"

#include <fstream>

namespace {

constexpr CLSID CLSID_RECEIVER = {0x5b1c0a77, 0x2d0e, 0x4b57, {0x9a, 0x61, 0x3e, 0x1d, 0x7c, 0x52, 0x88, 0x01}};

class Receiver : public vorna::com_object<Receiver, IComBaseClient> {
  public:
    STDMETHODIMP Deliver(BSTR document, BSTR* error) override {
        if (error)
            *error = nullptr;
        return inbox.Take(document);
    }
};

void SetClassesText(const std::wstring& key, const std::wstring& text) {
    RegSetKeyValueW(HKEY_CLASSES_ROOT, key.c_str(), nullptr, REG_SZ, text.c_str(),
                    static_cast<DWORD>(text.size() + 1) * sizeof(wchar_t));
}

} // namespace

void RegisterProgId(const std::wstring& progId, const CLSID& clsid) {
    const std::wstring guid = vorna::guid_text(clsid);
    SetClassesText(progId + L"\\CLSID", guid);
    // COM finds the class only while this program has registered it.
    SetClassesText(L"CLSID\\" + guid + L"\\LocalServer32", L"C:\\no-such-program.exe");
}

DWORD RunHost(const std::wstring& option) {
    std::wstring command = L"\"" + (support::BinFolder() / "QXKeldanHost.exe").wstring() + L"\" " + option;
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (!CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process))
        return ~0u;
    const vorna::unique_handle handle(process.hProcess);
    const vorna::unique_handle thread(process.hThread);
    WaitForSingleObject(handle.get(), INFINITE);
    DWORD code = ~0u;
    GetExitCodeProcess(handle.get(), &code);
    return code;
}

HostTest::HostTest() : receiver_(RunningClass::Of<Receiver>(CLSID_RECEIVER, CLSCTX_LOCAL_SERVER)) {}

void HostTest::SetUpTestSuite() {
    support::RegisterPlatform();
    // The interface of the callbacks marshals by its type library, which the component brings where it is installed.
    const std::wstring file = (support::BinFolder() / "VornaLib.tlb").wstring();
    vorna::com_ptr<ITypeLib> library;
    ASSERT_HR(S_OK, LoadTypeLibEx(file.c_str(), REGKIND_REGISTER, library.put()));
    // Wine's marshaller looks only for the neutral language.
    SetClassesText(L"TypeLib\\{3C9F4A0E-52B7-4D0B-A6BE-91D1E60F7B30}\\1.0\\0\\win32", file);
    RegisterProgId(RECEIVER, CLSID_RECEIVER);
}

void HostTest::TearDown() {
    EXPECT_EQ(0u, RunHost(L"/stop"));
}

DWORD HostTest::HostId() const {
    DWORD id = 0;
    std::ifstream(dataFolder_ / "host.pid") >> id;
    return id;
}

void HostTest::KillHost() {
    const vorna::unique_handle process(OpenProcess(PROCESS_TERMINATE | SYNCHRONIZE, FALSE, HostId()));
    ASSERT_TRUE(process);
    ASSERT_TRUE(TerminateProcess(process.get(), 9));
    WaitForSingleObject(process.get(), INFINITE);
}

void HostTest::Damage(const wchar_t* name) const {
    std::fstream file(dataFolder_ / name, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(60);
    file.put('?');
}

int HostTest::FilesNamed(std::wstring_view begin) const {
    int found = 0;
    for (const auto& entry : std::filesystem::directory_iterator(dataFolder_))
        found += entry.path().filename().wstring().starts_with(begin);
    return found;
}
