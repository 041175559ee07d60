// One registration at a time, over all processes: from the platform's answer to the record in the persist document.
//
// A callback that comes in between finds no record; whoever means to end its registration for that reason takes this
// lock first and looks again. Held over archive and persist locks, never taken inside one, and never held while a
// registration that calls back is being ended.
#pragma once

#include "persist/GlobalLocks.h"

namespace vorna {

class RegistrationLock {
  public:
    RegistrationLock() : lock_(locks_, L"VORNA_REGISTRATION") {}

    bool Held() const { return lock_.Held(); }
    void Unlock() { lock_.Unlock(); }

  private:
    GlobalLocks locks_;
    ScopedLock lock_;
};

} // namespace vorna
