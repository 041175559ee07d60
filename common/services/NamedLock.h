// A hold on a lock that all processes of the machine share.
//
// A lock is a kernel mutex in the global namespace: owned by a thread, recursive. A wait ends after ten minutes at the
// latest. If the owner ended without giving the lock back, it counts as taken and what it guards is used as it stands.
#pragma once

#include "common/com/ProcessorFault.h"
#include "common/com/unique_any.h"

#include <string>

namespace vorna {

// Takes the lock at construction and holds it for the life of the object, if Result() is S_OK. It is given back also
// when a processor fault abandons the frame. One thread.
class NamedLock {
  public:
    struct Name {
        // What the log calls the lock.
        std::wstring text;
        // The line in the log if the kernel object cannot be made.
        const char* createFailed;
        // The kernel object, without "Global\"; empty: the text without its backslashes.
        std::wstring mutex = {};
    };

    // mutex: a handle that is filled by the first lock and stays open for the next; null for one of the lock's own,
    // which is closed when the lock is given back.
    explicit NamedLock(Name name, unique_handle* mutex = nullptr);
    ~NamedLock() { Unlock(); }
    NamedLock(const NamedLock&) = delete;
    NamedLock& operator=(const NamedLock&) = delete;

    // S_OK while the thread owns the lock; E_FAIL if there is no mutex, if ten minutes were not enough, or once the
    // lock was given back.
    HRESULT Result() const { return result_; }
    bool Held() const { return result_ == S_OK; }
    // Gives the lock back early.
    void Unlock();

  private:
    HRESULT Lock();

    const Name name_;
    unique_handle own_;
    unique_handle* const mutex_;
    HRESULT result_;
    on_fault abandoned_;
};

} // namespace vorna
