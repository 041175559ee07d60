#include "front/Registrar.h"

#include "VornaLib.h"
#include "common/com/com_ptr.h"
#include "common/com/results.h"
#include "common/com/text_forms.h"
#include "front/resource.h"

#include <objbase.h>

namespace vorna {

namespace {

constexpr wchar_t APPLICATION_ID[] = L"{9D0E6C57-4A3B-4F18-B2C1-6B8A5E90D374}";
constexpr CLSID CLSID_REGISTRAR = {0x44EC053A, 0x400F, 0x11D0, {0x9D, 0xCD, 0x00, 0xA0, 0xC9, 0x03, 0x91, 0xD3}};
constexpr IID IID_I_REGISTRAR = {0x44EC053B, 0x400F, 0x11D0, {0x9D, 0xCD, 0x00, 0xA0, 0xC9, 0x03, 0x91, 0xD3}};

// The path without what the scripts cannot contain: a value there ends at its first apostrophe, and not every registrar
// knows an escape for one.
std::wstring ScriptText(std::wstring path) {
    std::erase(path, L'\'');
    return path;
}

HRESULT WriteServerPath(const std::wstring& modulePath) {
    const std::wstring key = L"CLSID\\" + guid_text(__uuidof(::Vorna)) + L"\\InprocServer32";
    const LSTATUS status = RegSetKeyValueW(HKEY_CLASSES_ROOT, key.c_str(), nullptr, REG_SZ, modulePath.c_str(),
                                           (static_cast<DWORD>(modulePath.size()) + 1) * DWORD{sizeof(wchar_t)});
    return status == ERROR_SUCCESS ? S_OK : result_from_win32(static_cast<DWORD>(status));
}

} // namespace

// The registrar's interface in the order of its slots; the compiler has no header for it. Not in the unnamed namespace,
// because there the optimiser would see that no class implements it and remove the calls.
struct IRegistrar : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE AddReplacement(LPCOLESTR key, LPCOLESTR item) = 0;
    virtual HRESULT STDMETHODCALLTYPE ClearReplacements() = 0;
    virtual HRESULT STDMETHODCALLTYPE ResourceRegisterSz(LPCOLESTR file, LPCOLESTR id, LPCOLESTR type) = 0;
    virtual HRESULT STDMETHODCALLTYPE ResourceUnregisterSz(LPCOLESTR file, LPCOLESTR id, LPCOLESTR type) = 0;
    virtual HRESULT STDMETHODCALLTYPE FileRegister(LPCOLESTR file) = 0;
    virtual HRESULT STDMETHODCALLTYPE FileUnregister(LPCOLESTR file) = 0;
    virtual HRESULT STDMETHODCALLTYPE StringRegister(LPCOLESTR data) = 0;
    virtual HRESULT STDMETHODCALLTYPE StringUnregister(LPCOLESTR data) = 0;
    virtual HRESULT STDMETHODCALLTYPE ResourceRegister(LPCOLESTR file, UINT id, LPCOLESTR type) = 0;
    virtual HRESULT STDMETHODCALLTYPE ResourceUnregister(LPCOLESTR file, UINT id, LPCOLESTR type) = 0;
};

HRESULT RunRegistryScripts(const std::wstring& modulePath, bool registering) {
    com_ptr<IRegistrar> registrar;
    HRESULT result =
        CoCreateInstance(CLSID_REGISTRAR, nullptr, CLSCTX_INPROC_SERVER, IID_I_REGISTRAR, registrar.put_void());
    if (FAILED(result))
        return result;
    result = registrar->AddReplacement(L"MODULE", ScriptText(modulePath).c_str());
    if (SUCCEEDED(result))
        result = registrar->AddReplacement(L"APPID", APPLICATION_ID);
    for (UINT script : {IDR_APPLICATION, IDR_CLASS}) {
        if (FAILED(result))
            return result;
        result = registering ? registrar->ResourceRegister(modulePath.c_str(), script, L"REGISTRY")
                             : registrar->ResourceUnregister(modulePath.c_str(), script, L"REGISTRY");
    }
    return registering && SUCCEEDED(result) ? WriteServerPath(modulePath) : result;
}

} // namespace vorna
