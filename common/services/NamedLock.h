// A scoped lock that all processes of the machine share.
//
// A lock is a kernel mutex in the global namespace: owned by a thread, recursive. A wait ends after ten minutes at the
// latest. If the owner ended without releasing the lock, the next one acquires it and uses the protected data as it is.
#pragma once

#include "common/com/ProcessorFault.h"
#include "common/com/unique_any.h"

#include <string>

namespace vorna {

// Acquires the lock in the constructor and, if Result() is S_OK, holds it until Unlock or the destructor. Also releases
// it if a processor fault abandons the frame. One thread.
class NamedLock {
  public:
    struct Name {
        // The name of the lock in the log.
        std::wstring text;
        // The log line if the mutex cannot be created.
        const char* createFailed;
        // The name of the mutex without "Global\"; if empty, text without its backslashes.
        std::wstring mutex = {};
    };

    // mutex: a handle that the first lock opens and later locks reuse; null for a private handle that is closed when
    // the lock is released.
    explicit NamedLock(Name name, unique_handle* mutex = nullptr);
    ~NamedLock() { Unlock(); }
    NamedLock(const NamedLock&) = delete;
    NamedLock& operator=(const NamedLock&) = delete;

    // S_OK while the lock is held; E_FAIL if the mutex could not be created or was not acquired within ten minutes, or
    // after Unlock.
    HRESULT Result() const { return result_; }
    bool Held() const { return result_ == S_OK; }
    // Releases the lock early.
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
