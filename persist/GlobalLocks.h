// The locks that are not specific to one subscription; the lock of an archive is SubscriptionArchive::Lock.
//
// Order: registration, folders, then persist or archive, which are never held together. While a registration lock is
// held, no registration that calls back is ended: its component may wait for a callback that waits for this lock. For
// the same reason no callback takes the folder lock.
#pragma once

#include "common/services/NamedLock.h"

namespace vorna {

// Guards the persist document. mutex: the handle, which the persistence object keeps open.
inline NamedLock PersistLock(unique_handle& mutex) {
    return NamedLock({L"VORNA", "Create VornaPersist Global Mutex Failed", L"5A1D7C3E-92F4-4B0A-8E6D-C07B3F1529D8"},
                     &mutex);
}

// One registration of an archive at a time: from the look at its record over the platform's answer to the new record. A
// callback that comes in between finds no record; before its registration is ended for that reason, this lock is taken
// and the record looked for again. clientCookie: names the archive.
NamedLock RegistrationLock(std::wstring_view clientCookie);

// One change at a time of what all archives share: the folders, and whether there is a maintenance timer.
inline NamedLock FolderLock() {
    return NamedLock({L"VORNA_FOLDERS", "Create Archive Global Mutex Failed"});
}

} // namespace vorna
