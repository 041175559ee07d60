#include "persist/GlobalLocks.h"

#include "common/log/Logging.h"

#include <algorithm>

namespace vorna {

namespace {

constexpr wchar_t PERSIST_MUTEX[] = L"Global\\5A1D7C3E-92F4-4B0A-8E6D-C07B3F1529D8";

// Milliseconds.
constexpr DWORD LONGEST_WAIT = 600000;
// After this a wait is worth a line in the log.
constexpr DWORD NOTICED_WAIT = 2000;

} // namespace

HRESULT GlobalLocks::Lock(std::wstring_view name) {
    VORNA_LOG(LOG_TRACE, "Locking : %S", std::wstring(name).c_str());
    if (name == PERSIST_LOCK) {
        if (!persistMutex_)
            persistMutex_.reset(CreateMutexW(nullptr, FALSE, PERSIST_MUTEX));
        if (!persistMutex_) {
            VORNA_LOG(LOG_TRACE, "Create VornaPersist Global Mutex Failed");
            return E_FAIL;
        }
        return Wait(persistMutex_.get(), name);
    }
    std::wstring mutexName(name);
    mutexName.erase(std::remove(mutexName.begin(), mutexName.end(), L'\\'), mutexName.end());
    mutexName.insert(0, L"Global\\");
    archiveMutex_.reset(CreateMutexW(nullptr, FALSE, mutexName.c_str()));
    if (!archiveMutex_) {
        VORNA_LOG(LOG_TRACE, "Create Archive Global Mutex Failed");
        return E_FAIL;
    }
    return Wait(archiveMutex_.get(), name);
}

HRESULT GlobalLocks::Wait(HANDLE mutex, std::wstring_view name) {
    DWORD answer = WaitForSingleObject(mutex, NOTICED_WAIT);
    if (answer == WAIT_TIMEOUT) {
        VORNA_LOG(LOG_NOTICE, "Waiting for another owner of the lock : %S", std::wstring(name).c_str());
        answer = WaitForSingleObject(mutex, LONGEST_WAIT - NOTICED_WAIT);
    }
    if (answer == WAIT_OBJECT_0 || answer == WAIT_ABANDONED)
        return S_OK;
    VORNA_LOG(LOG_ERROR, "The lock was not given up in time : %S", std::wstring(name).c_str());
    return E_FAIL;
}

void GlobalLocks::Unlock(std::wstring_view name) {
    VORNA_LOG(LOG_TRACE, "Unlocking : %S", std::wstring(name).c_str());
    if (name == PERSIST_LOCK) {
        if (persistMutex_)
            ReleaseMutex(persistMutex_.get());
    } else if (archiveMutex_) {
        ReleaseMutex(archiveMutex_.get());
        archiveMutex_.reset();
    }
}

ScopedLock::ScopedLock(GlobalLocks& locks, std::wstring_view name)
    : locks_(locks), name_(name), result_(locks.Lock(name)),
      abandoned_([](void* self) { static_cast<ScopedLock*>(self)->Unlock(); }, this) {}

ScopedLock::~ScopedLock() {
    Unlock();
}

void ScopedLock::Unlock() {
    if (std::exchange(result_, E_FAIL) == S_OK)
        locks_.Unlock(name_);
}

} // namespace vorna
