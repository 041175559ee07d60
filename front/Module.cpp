// The module's entry points.

#include "VornaLib.h"
#include "common/com/com_server.h"
#include "common/com/results.h"
#include "common/com/unique_any.h"
#include "common/log/Logging.h"
#include "front/Registrar.h"
#include "front/Vorna.h"

namespace {

constexpr LCID TYPE_LIBRARY_LOCALE = 0x409;

// LIBID_VornaLib, as in the interface definition.
constexpr GUID TYPE_LIBRARY = {0x3C9F4A0E, 0x52B7, 0x4D0B, {0xA6, 0xBE, 0x91, 0xD1, 0xE6, 0x0F, 0x7B, 0x30}};

// The key for the neutral locale. Some marshalling code (Wine's) looks only there; the library itself has locale 0x409.
constexpr wchar_t NEUTRAL_KEY[] = L"TypeLib\\{3C9F4A0E-52B7-4D0B-A6BE-91D1E60F7B30}\\1.0\\0";
constexpr wchar_t LIBRARY_KEY[] = L"TypeLib\\{3C9F4A0E-52B7-4D0B-A6BE-91D1E60F7B30}\\1.0\\409";

HRESULT RegisterTypeLibrary(const std::wstring& modulePath) {
    vorna::com_ptr<ITypeLib> library;
    HRESULT result = LoadTypeLibEx(modulePath.c_str(), REGKIND_REGISTER, library.put());
    if (FAILED(result))
        return result;
    return HRESULT_FROM_WIN32(RegSetKeyValueW(HKEY_CLASSES_ROOT, (std::wstring(NEUTRAL_KEY) + L"\\win32").c_str(),
                                              nullptr, REG_SZ, modulePath.c_str(),
                                              static_cast<DWORD>((modulePath.size() + 1) * sizeof(wchar_t))));
}

bool HasTypeLibraryKey() {
    vorna::unique_registry_key key;
    return RegOpenKeyExW(HKEY_CLASSES_ROOT, LIBRARY_KEY, 0, KEY_READ, key.put()) != ERROR_FILE_NOT_FOUND;
}

HRESULT UnregisterTypeLibrary() {
    const LSTATUS neutral = RegDeleteTreeW(HKEY_CLASSES_ROOT, NEUTRAL_KEY);
    const HRESULT result = UnRegisterTypeLib(TYPE_LIBRARY, 1, 0, TYPE_LIBRARY_LOCALE, SYS_WIN32);
    // The results for a library that is not registered (TYPE_E_REGISTRYACCESS, in Wine E_INVALIDARG) have other causes
    // too, so the key decides: without it there was nothing to do.
    if (FAILED(result) && HasTypeLibraryKey())
        return result;
    return neutral == ERROR_SUCCESS || neutral == ERROR_FILE_NOT_FOUND
               ? S_OK
               : vorna::result_from_win32(static_cast<DWORD>(neutral));
}

// Initialises COM for the duration of a registration; does nothing if the thread is in another kind of apartment.
class ComApartment {
  public:
    ComApartment() : result_(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)) {}
    ~ComApartment() {
        if (SUCCEEDED(result_))
            CoUninitialize();
    }
    ComApartment(const ComApartment&) = delete;
    ComApartment& operator=(const ComApartment&) = delete;

  private:
    HRESULT result_;
};

} // namespace

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
    // Disabling them has no effect on a module with thread-local storage, so they must also be ignored.
    if (reason == DLL_THREAD_ATTACH || reason == DLL_THREAD_DETACH)
        return TRUE;
    vorna::StartLogging("QXKELDAN.Vorna");
    if (reason == DLL_PROCESS_ATTACH)
        DisableThreadLibraryCalls(instance);
    return TRUE;
}

STDAPI DllGetClassObject(REFCLSID classId, REFIID iid, void** object) {
    if (!object)
        return E_POINTER;
    *object = nullptr;
    if (classId != __uuidof(Vorna))
        return CLASS_E_CLASSNOTAVAILABLE;
    return vorna::get_class_factory<vorna::Vorna>(iid, object);
}

STDAPI DllCanUnloadNow() {
    return vorna::module_uses == 0 ? S_OK : S_FALSE;
}

STDAPI DllRegisterServer() {
    return vorna::closed_door([] {
        const ComApartment apartment;
        const std::wstring path = vorna::this_module_path();
        HRESULT result = vorna::RunRegistryScripts(path, true);
        return SUCCEEDED(result) ? RegisterTypeLibrary(path) : result;
    });
}

STDAPI DllUnregisterServer() {
    return vorna::closed_door([] {
        const ComApartment apartment;
        HRESULT scripts = vorna::RunRegistryScripts(vorna::this_module_path(), false);
        HRESULT library = UnregisterTypeLibrary();
        return FAILED(scripts) ? scripts : library;
    });
}
