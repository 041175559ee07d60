// A server whose registration behaves as VORNA_TEST_SERVER says: "ok" names an existing class (Msxml2.DOMDocument) by
// the ProgID VORNATEST.Server, "fail" returns a failure, "fault" reads address 0.
#include <windows.h>

#include <string_view>

extern "C" HRESULT WINAPI DllRegisterServer() {
    // Not getenv: the C library keeps a copy of its own.
    char behaviour[16] = "";
    GetEnvironmentVariableA("VORNA_TEST_SERVER", behaviour, sizeof behaviour);
    const std::string_view wanted = behaviour;
    if (wanted == "fault")
        // NOLINTNEXTLINE(clang-analyzer-core.NullDereference): the fault is wanted
        return *static_cast<volatile HRESULT*>(nullptr);
    if (wanted != "ok")
        return E_ACCESSDENIED;
    wchar_t clsid[64];
    DWORD size = sizeof clsid;
    if (RegGetValueW(HKEY_CLASSES_ROOT, L"Msxml2.DOMDocument\\CLSID", nullptr, RRF_RT_REG_SZ, nullptr, clsid, &size) !=
        ERROR_SUCCESS)
        return E_FAIL;
    return HRESULT_FROM_WIN32(
        RegSetKeyValueW(HKEY_CLASSES_ROOT, L"VORNATEST.Server\\CLSID", nullptr, REG_SZ, clsid, size));
}

extern "C" HRESULT WINAPI DllUnregisterServer() {
    RegDeleteKeyW(HKEY_CLASSES_ROOT, L"VORNATEST.Server\\CLSID");
    return HRESULT_FROM_WIN32(RegDeleteKeyW(HKEY_CLASSES_ROOT, L"VORNATEST.Server"));
}
