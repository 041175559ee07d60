// System-wide named locks: one for the persist document, one for each subscription's archives.
//
// A lock is a kernel mutex: owned by a thread, recursive, shared by every process and session of the machine. A wait
// ends after ten minutes at the latest. The data behind the lock of a process that died is used as it stands.
#pragma once

#include "common/com/ProcessorFault.h"
#include "common/com/unique_any.h"

#include <string>
#include <string_view>

namespace vorna {

// The name of the lock on the persist document.
inline constexpr std::wstring_view PERSIST_LOCK = L"VORNA";

// The two handles of one owner. It holds at most one archive lock at a time: what needs a second one beside it makes
// an object of its own. Not shared between threads.
class GlobalLocks {
  public:
    // S_OK once the calling thread owns the lock, E_FAIL otherwise (no mutex, ten minutes over).
    [[nodiscard]] HRESULT Lock(std::wstring_view name);
    // Does nothing where nothing is locked.
    void Unlock(std::wstring_view name);

  private:
    HRESULT Wait(HANDLE mutex, std::wstring_view name);

    unique_handle persistMutex_;
    unique_handle archiveMutex_;
};

// Holds one lock for the life of the object, where result() is S_OK; given back also when a processor fault abandons
// the frame.
class ScopedLock {
  public:
    ScopedLock(GlobalLocks& locks, std::wstring_view name);
    ~ScopedLock();
    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;

    HRESULT Result() const { return result_; }
    bool Held() const { return result_ == S_OK; }
    // Gives the lock back early.
    void Unlock();

  private:
    GlobalLocks& locks_;
    std::wstring name_;
    HRESULT result_;
    on_fault abandoned_;
};

} // namespace vorna
