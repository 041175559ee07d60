// The locks that do not belong to one subscription. An archive's own lock is SubscriptionArchive::Lock.
//
// The persist lock and archive locks are never held together. The registration lock is taken outside of both, never
// inside one, and is not held while a registration that calls back is being ended.
#pragma once

#include "common/services/NamedLock.h"

namespace vorna {

// Guards the persist document. mutex: kept open over the life of the persistence object.
inline NamedLock PersistLock(unique_handle& mutex) {
    return NamedLock({L"VORNA", "Create VornaPersist Global Mutex Failed", L"5A1D7C3E-92F4-4B0A-8E6D-C07B3F1529D8"},
                     &mutex);
}

// One registration at a time, over all processes: from the platform's answer to the record in the persist document. A
// callback that comes in between finds no record; before its registration is ended for that reason, this lock is taken
// and the record looked for again.
inline NamedLock RegistrationLock() {
    return NamedLock({L"VORNA_REGISTRATION", "Create Archive Global Mutex Failed"});
}

} // namespace vorna
