#include "persist/GlobalLocks.h"

#include <cstdint>
#include <string>

namespace vorna {

NamedLock RegistrationLock(std::wstring_view clientCookie) {
    // The cookie may be longer than a kernel object's name, so its FNV-1a hash is used. Archives with the same hash
    // only wait for each other.
    std::uint64_t hash = 0xCBF29CE484222325;
    for (wchar_t letter : clientCookie)
        hash = (hash ^ letter) * 0x100000001B3;
    return NamedLock({L"VORNA_REGISTRATION " + std::wstring(clientCookie), "Create Archive Global Mutex Failed",
                      L"VORNA_REGISTRATION_" + std::to_wstring(hash)});
}

} // namespace vorna
