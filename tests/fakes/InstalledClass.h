// Classes of a test's own, created by COM under a ProgID.
#pragma once

#include "common/com/com_server.h"
#include "common/com/text_forms.h"
#include "support/Support.h"

namespace fakes {

// Points a ProgID at a class of this program for the life of the object. context: CLSCTX_LOCAL_SERVER makes it known to
// other processes too.
template <typename Class>
class InstalledClass {
  public:
    explicit InstalledClass(const wchar_t* progId, DWORD context = CLSCTX_INPROC_SERVER)
        : clsid_(NewGuid()),
          progId_(L"SOFTWARE\\Classes\\" + std::wstring(progId) + L"\\CLSID", L"", vorna::guid_text(clsid_)) {
        // COM looks for a class of another process only if a server is registered for it.
        if (context == CLSCTX_LOCAL_SERVER)
            RegSetKeyValueW(HKEY_LOCAL_MACHINE, (ClassKey() + L"\\LocalServer32").c_str(), nullptr, REG_SZ, L"none",
                            10);
        vorna::com_ptr<IUnknown> factory;
        vorna::get_class_factory<Class>(IID_IUnknown, factory.put_void());
        EXPECT_HR(S_OK, CoRegisterClassObject(clsid_, factory.get(), context, REGCLS_MULTIPLEUSE, &cookie_));
    }
    ~InstalledClass() {
        CoRevokeClassObject(cookie_);
        RegDeleteTreeW(HKEY_LOCAL_MACHINE, ClassKey().c_str());
    }
    InstalledClass(const InstalledClass&) = delete;
    InstalledClass& operator=(const InstalledClass&) = delete;

  private:
    static GUID NewGuid() {
        GUID guid{};
        EXPECT_HR(S_OK, CoCreateGuid(&guid));
        return guid;
    }
    std::wstring ClassKey() const { return L"SOFTWARE\\Classes\\CLSID\\" + vorna::guid_text(clsid_); }

    GUID clsid_;
    support::RegistryValue progId_;
    DWORD cookie_ = 0;
};

} // namespace fakes
