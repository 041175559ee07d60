#include "platform/HostTest.h"

#include <algorithm>
#include <fstream>

void HostTest::SetUpTestSuite() {
    support::RegisterPlatform();
    // The interface of the callbacks marshals by its type library, which the component brings where it is installed.
    const std::wstring file = (support::BinFolder() / "VornaLib.tlb").wstring();
    vorna::com_ptr<ITypeLib> library;
    ASSERT_HR(S_OK, LoadTypeLibEx(file.c_str(), REGKIND_REGISTER, library.put()));
    // Wine's marshaller looks only for the neutral language.
    RegSetKeyValueW(HKEY_CLASSES_ROOT, L"TypeLib\\{3C9F4A0E-52B7-4D0B-A6BE-91D1E60F7B30}\\1.0\\0\\win32", nullptr,
                    REG_SZ, file.c_str(), static_cast<DWORD>((file.size() + 1) * sizeof(wchar_t)));
}

void HostTest::TearDown() {
    EXPECT_EQ(0u, support::RunHost(L"/stop"));
}

DWORD HostTest::HostId() const {
    DWORD id = 0;
    std::ifstream(dataFolder_ / "host.pid") >> id;
    return id;
}

bool HostTest::WasMovedAside(const std::wstring& name) const {
    const auto files = support::FilesIn(dataFolder_);
    return std::any_of(files.begin(), files.end(),
                       [&](const std::wstring& file) { return file.starts_with(name + L".damaged"); });
}
