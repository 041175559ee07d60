#include "persist/GlobalLocks.h"

#include "common/com/hash_text.h"

#include <string>

namespace vorna {

NamedLock RegistrationLock(std::wstring_view clientCookie) {
    // The cookie may be longer than a kernel object's name, so its hash is used. Archives with the same hash only wait
    // for each other.
    return NamedLock({L"VORNA_REGISTRATION " + std::wstring(clientCookie), "Create Archive Global Mutex Failed",
                      L"VORNA_REGISTRATION_" + std::to_wstring(hash_text(clientCookie))});
}

} // namespace vorna
