// The locks that are not specific to one subscription; the lock of an archive is SubscriptionArchive::Lock.
//
// The persist lock and archive locks are never held together. The registration lock is always acquired before them, and
// is not held while a registration is being ended whose callbacks may wait for it.
#pragma once

#include "common/services/NamedLock.h"

namespace vorna {

// Guards the persist document. mutex: the handle, which the persistence object keeps open.
inline NamedLock PersistLock(unique_handle& mutex) {
    return NamedLock({L"VORNA", "Create VornaPersist Global Mutex Failed", L"5A1D7C3E-92F4-4B0A-8E6D-C07B3F1529D8"},
                     &mutex);
}

// Serialises registrations across all processes, from the call of the platform to the record in the persist document. A
// callback that arrives in between finds no record; before it ends the registration for this reason, it acquires this
// lock and looks again.
inline NamedLock RegistrationLock() {
    return NamedLock({L"VORNA_REGISTRATION", "Create Archive Global Mutex Failed"});
}

} // namespace vorna
