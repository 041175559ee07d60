#include "platform/registration/ServerClass.h"

#include "common/com/bstr.h"
#include "common/com/com_ptr.h"
#include "common/com/paths.h"
#include "common/com/results.h"
#include "common/com/scope_exit.h"
#include "common/com/text_forms.h"

#include <objbase.h>
#include <oleauto.h>

namespace keldan {

namespace {

// name: null for the default value.
HRESULT SetText(const std::wstring& key, const wchar_t* name, const std::wstring& text) {
    LSTATUS status = RegSetKeyValueW(HKEY_CLASSES_ROOT, key.c_str(), name, REG_SZ, text.c_str(),
                                     static_cast<DWORD>(text.size() + 1) * sizeof(wchar_t));
    return status == ERROR_SUCCESS ? S_OK : vorna::result_from_win32(static_cast<DWORD>(status));
}

HRESULT DeleteTree(const std::wstring& key) {
    LSTATUS status = RegDeleteTreeW(HKEY_CLASSES_ROOT, key.c_str());
    if (status == ERROR_SUCCESS || status == ERROR_FILE_NOT_FOUND)
        return S_OK;
    return vorna::result_from_win32(static_cast<DWORD>(status));
}

HRESULT RegisterServerClass(const ServerClass& entry, ServerKind kind, const std::wstring& modulePath) {
    const std::wstring guid = vorna::guid_text(entry.clsid);
    const std::wstring classKey = L"CLSID\\" + guid;
    const bool inProcess = kind == ServerKind::InProcess;
    const std::wstring serverKey = classKey + (inProcess ? L"\\InprocServer32" : L"\\LocalServer32");

    const std::wstring server = vorna::plain_path(modulePath);
    const struct {
        std::wstring key;
        std::wstring text;
    } defaults[] = {{classKey, entry.description},          {serverKey, inProcess ? server : L"\"" + server + L"\""},
                    {classKey + L"\\ProgID", entry.progId}, {classKey + L"\\VersionIndependentProgID", entry.progId},
                    {entry.progId, entry.description},      {std::wstring(entry.progId) + L"\\CLSID", guid}};
    for (const auto& [key, text] : defaults)
        if (const HRESULT result = SetText(key, nullptr, text); FAILED(result))
            return result;
    return inProcess ? SetText(serverKey, L"ThreadingModel", L"Both") : S_OK;
}

HRESULT UnregisterServerClass(const ServerClass& entry) {
    const HRESULT byName = DeleteTree(entry.progId);
    const HRESULT byGuid = DeleteTree(L"CLSID\\" + vorna::guid_text(entry.clsid));
    return FAILED(byName) ? byName : byGuid;
}

HRESULT RegisterTypeLibrary(const std::wstring& modulePath) {
    vorna::com_ptr<ITypeLib> library;
    return LoadTypeLibEx(vorna::plain_path(modulePath).c_str(), REGKIND_REGISTER, library.put());
}

HRESULT UnregisterTypeLibrary(const std::wstring& modulePath) {
    vorna::com_ptr<ITypeLib> library;
    HRESULT result = LoadTypeLibEx(modulePath.c_str(), REGKIND_NONE, library.put());
    TLIBATTR* identity = nullptr;
    if (SUCCEEDED(result))
        result = library->GetLibAttr(&identity);
    if (FAILED(result))
        return result;
    const vorna::scope_exit release([&] { library->ReleaseTLibAttr(identity); });
    const auto [guid, language, system, major, minor, flags] = *identity;
    vorna::bstr registered;
    if (FAILED(QueryPathOfRegTypeLib(guid, major, minor, language, registered.put())))
        return S_OK;
    // The text may include the null that ends it in the registry.
    if (lstrcmpiW(vorna::plain_path(registered.get()).c_str(), vorna::plain_path(modulePath).c_str()) != 0)
        return S_OK;
    return UnRegisterTypeLib(guid, major, minor, language, SYS_WIN32);
}

} // namespace

HRESULT RegisterModule(const std::wstring& modulePath, ServerKind kind, std::span<const ServerClass> classes) {
    HRESULT result = RegisterTypeLibrary(modulePath);
    for (const ServerClass& entry : classes)
        if (SUCCEEDED(result))
            result = RegisterServerClass(entry, kind, modulePath);
    return result;
}

HRESULT UnregisterModule(const std::wstring& modulePath, std::span<const ServerClass> classes) {
    HRESULT result = UnregisterTypeLibrary(modulePath);
    for (const ServerClass& entry : classes)
        if (const HRESULT one = UnregisterServerClass(entry); SUCCEEDED(result))
            result = one;
    return result;
}

} // namespace keldan
