// Registration of the platform's classes and of its type library, for the DLL and for the host program alike.
//
// Everything is written under HKEY_CLASSES_ROOT for the whole machine; registering again repairs what is there. An
// operation that fails may leave a part of its entries behind; repeating it or unregistering is safe.
#pragma once

#include <windows.h>

#include <string>

namespace keldan {

enum class ServerKind {
    InProcess,  // InprocServer32 with ThreadingModel Both
    LocalServer // LocalServer32, the path in quotes
};

// One class of a module. Tables of them are constants of the module; the texts live as long as it does.
struct ServerClass {
    const CLSID& clsid;
    // Version-independent and versioned in one.
    const wchar_t* progId;
    // For people who look at the registry.
    const wchar_t* description;
    // Hands out the class factory: vorna::get_class_factory<Class>.
    HRESULT (*getClassFactory)(REFIID iid, void** object);
};

// Writes CLSID and ProgID of one class. modulePath: the full path of the file that serves it.
[[nodiscard]] HRESULT RegisterServerClass(const ServerClass& entry, ServerKind kind, const std::wstring& modulePath);
// Removes both. A class that is not registered is no error.
[[nodiscard]] HRESULT UnregisterServerClass(const ServerClass& entry);

// Registers the type library in resource 1 of the file, so that the interfaces marshal.
[[nodiscard]] HRESULT RegisterTypeLibrary(const std::wstring& modulePath);
// Removes the registration of the library that the file holds, unless another file has taken it over since.
[[nodiscard]] HRESULT UnregisterTypeLibrary(const std::wstring& modulePath);

} // namespace keldan
