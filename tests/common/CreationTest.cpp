// Classes of server programs that have ended.
#include "common/com/com_server.h"
#include "common/com/text_forms.h"
#include "common/services/platformservices.h"
#include "support/Support.h"

using namespace vorna;

namespace {

constexpr wchar_t PROGID[] = L"VORNATEST.Gone";

// Fails a number of times and counts its calls.
class FailingFactory : public com_object<FailingFactory, IClassFactory> {
  public:
    STDMETHODIMP CreateInstance(IUnknown*, REFIID iid, void** object) override {
        return ++calls > failures ? QueryInterface(iid, object) : result;
    }
    STDMETHODIMP LockServer(BOOL) override { return S_OK; }

    HRESULT result = S_OK;
    int failures = 0;
    int calls = 0;
};

} // namespace

TEST(Creation, RepeatedOnceIfTheServerIsGone) {
    GUID clsid{};
    ASSERT_HR(S_OK, CoCreateGuid(&clsid));
    const std::wstring classKey = L"SOFTWARE\\Classes\\CLSID\\" + guid_text(clsid);
    const support::RegistryValue progId(std::wstring(L"SOFTWARE\\Classes\\") + PROGID + L"\\CLSID", L"",
                                        guid_text(clsid));
    com_ptr<FailingFactory> factory;
    factory.attach(new FailingFactory());
    DWORD cookie = 0;
    ASSERT_HR(S_OK, CoRegisterClassObject(clsid, factory.get(), CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &cookie));
    const auto create = [&](HRESULT result, int failures) {
        factory->result = result;
        factory->failures = failures;
        factory->calls = 0;
        com_ptr<IUnknown> object;
        return PlatformServices::CreateInstance(PROGID, nullptr, object, IID_IUnknown);
    };
    EXPECT_HR(RPC_E_DISCONNECTED, create(RPC_E_DISCONNECTED, 9));
    EXPECT_EQ(1, factory->calls) << "not served by a program";

    const support::RegistryValue server(classKey + L"\\LocalServer32", L"", L"none.exe");
    const struct {
        HRESULT result;
        bool repeated;
    } cases[] = {
        {HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE), true},
        {HRESULT_FROM_WIN32(RPC_S_CALL_FAILED), true},
        {RPC_E_DISCONNECTED, true},
        {CO_E_OBJNOTCONNECTED, true},
        {REGDB_E_CLASSNOTREG, true},
        {E_ACCESSDENIED, false},
        {E_NOINTERFACE, false},
        {E_OUTOFMEMORY, false},
        {CO_E_SERVER_EXEC_FAILURE, false},
    };
    for (const auto& item : cases) {
        EXPECT_HR(item.repeated ? S_OK : item.result, create(item.result, 1));
        EXPECT_HR(item.result, create(item.result, 9));
        EXPECT_EQ(item.repeated ? 2 : 1, factory->calls);
    }
    CoRevokeClassObject(cookie);
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, classKey.c_str());
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, (std::wstring(L"SOFTWARE\\Classes\\") + PROGID).c_str());
}
