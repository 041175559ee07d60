// Creation of the platform's components by their ProgIDs.
#pragma once

#include "common/com/com_ptr.h"

#include <windows.h>

namespace vorna {

inline constexpr wchar_t PROGID_VORNA[] = L"QXKELDAN.Vorna.1";
inline constexpr wchar_t PROGID_XML_ACCESSOR[] = L"QXKELDAN.XMLSimpleAccessor";
inline constexpr wchar_t PROGID_SERVICE_FACTORY[] = L"QXKELDAN.ZEBService";
inline constexpr wchar_t PROGID_TIMER[] = L"QXKELDAN.ZEBTimer";
inline constexpr wchar_t PROGID_EVENT_MANAGER[] = L"QXKELDAN.ZEBEventManager";
inline constexpr wchar_t PROGID_EVENT_ACCESS[] = L"QXKELDAN.ZEBEventAccess";
inline constexpr wchar_t PROGID_ARCHIVE_MANAGER[] = L"QXKELDAN.ZEBSecureArchiveManager";
inline constexpr wchar_t PROGID_AGGREGATOR[] = L"QXKELDAN.Aggregator";

// The part of CPComPtr that does not depend on the interface.
template <typename Interface = void>
class CPComPtr;

template <>
class CPComPtr<void> {
  public:
    // Registers or unregisters the server in a .dll or .exe file. Waits at most 3.5 seconds for a program and never
    // ends it. Every failure is logged.
    static bool RegisterComponent(const wchar_t* modulePath, bool registering);
};

// The platform's name for a counted reference.
template <typename Interface>
class CPComPtr : public com_ptr<Interface> {
  public:
    using com_ptr<Interface>::com_ptr;
};

class PlatformServices {
  public:
    // Creates an object of the class that progId names. An administrator can force a class out of process with a string
    // value, named like its ProgID, under SOFTWARE\Ostrevane\QXKeldan\ForceToOutOfProc.
    //   modulePath  the server's file, registered on demand when the ProgID is unknown; or null
    //   instance    set on success, null on failure; the caller owns the reference
    // Never throws.
    template <typename Interface>
    [[nodiscard]] static HRESULT CreateInstance(const wchar_t* progId, const wchar_t* modulePath,
                                                com_ptr<Interface>& instance, REFIID iid = __uuidof(Interface)) {
        return CreateInstance(progId, modulePath, iid, instance.put_void());
    }

    // The same for a pointer without a type.
    [[nodiscard]] static HRESULT CreateInstance(const wchar_t* progId, const wchar_t* modulePath, REFIID iid,
                                                void** instance);
};

} // namespace vorna
