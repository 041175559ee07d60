// Registration of the platform's classes and of its type library, for the DLL and for the host program.
//
// Everything is written under HKEY_CLASSES_ROOT for the whole machine; registering again repairs existing entries. An
// operation that fails may leave a part of its entries behind; repeating it or unregistering is safe.
#pragma once

#include <windows.h>

#include <span>
#include <string>

namespace keldan {

enum class ServerKind {
    InProcess,  // InprocServer32 with ThreadingModel Both
    LocalServer // LocalServer32, the path in quotes
};

// One class of a module. The texts live as long as the module.
struct ServerClass {
    const CLSID& clsid;
    // Used as the versioned and as the version-independent ProgID.
    const wchar_t* progId;
    // Shown by registry editors and object browsers.
    const wchar_t* description;
    // Returns the class factory: vorna::get_class_factory<Class>.
    HRESULT (*getClassFactory)(REFIID iid, void** object);
};

// Registers the type library in resource 1 of the module, so that the interfaces marshal, and the CLSIDs and ProgIDs of
// its classes. modulePath: its full path.
[[nodiscard]] HRESULT RegisterModule(const std::wstring& modulePath, ServerKind kind,
                                     std::span<const ServerClass> classes);
// Removes the registrations of the classes, and of the type library unless another file has registered it since.
// Missing entries are not an error. Continues after a failure, and returns the first one.
[[nodiscard]] HRESULT UnregisterModule(const std::wstring& modulePath, std::span<const ServerClass> classes);

} // namespace keldan
