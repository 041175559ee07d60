// The locks that are not specific to one subscription; the lock of an archive is SubscriptionArchive::Lock.
//
// Order of acquisition: registration, folders, then persist or archive; the last two are never held together. No
// registration is ended while a registration lock is held, because the component may wait for a callback that waits for
// this lock. For the same reason callbacks never acquire the folder lock.
#pragma once

#include "common/services/NamedLock.h"

namespace vorna {

// Guards the persist document. mutex: the handle, which the persistence object keeps open.
inline NamedLock PersistLock(unique_handle& mutex) {
    return NamedLock({L"VORNA", "Create VornaPersist Global Mutex Failed", L"5A1D7C3E-92F4-4B0A-8E6D-C07B3F1529D8"},
                     &mutex);
}

// Serialises the registrations of one archive across all processes, from reading its record over the call of the
// platform to the new record. A callback that arrives in between finds no record; before it ends the registration for
// this reason, it acquires this lock and looks again. clientCookie: names the archive.
NamedLock RegistrationLock(std::wstring_view clientCookie);

// Serialises changes of what all archives share: the folders and the maintenance timer.
inline NamedLock FolderLock() {
    return NamedLock({L"VORNA_FOLDERS", "Create Archive Global Mutex Failed"});
}

} // namespace vorna
