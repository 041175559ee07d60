#include "common/services/NamedLock.h"

#include "common/log/Logging.h"

#include <utility>

namespace vorna {

namespace {

// Milliseconds.
constexpr DWORD LONGEST_WAIT = 600000;
// Longer waits are logged.
constexpr DWORD NOTICED_WAIT = 2000;

std::wstring MutexName(const NamedLock::Name& name) {
    std::wstring mutex = name.mutex.empty() ? name.text : name.mutex;
    std::erase(mutex, L'\\');
    return L"Global\\" + mutex;
}

} // namespace

NamedLock::NamedLock(Name name, unique_handle* mutex)
    : name_(std::move(name)), mutex_(mutex ? mutex : &own_), result_(Lock()),
      abandoned_([](void* self) { static_cast<NamedLock*>(self)->Unlock(); }, this) {}

HRESULT NamedLock::Lock() {
    VORNA_LOG(LOG_TRACE, "Locking : %S", name_.text.c_str());
    if (!*mutex_)
        mutex_->reset(CreateMutexW(nullptr, FALSE, MutexName(name_).c_str()));
    if (!*mutex_) {
        VORNA_LOG(LOG_TRACE, "%s", name_.createFailed);
        return E_FAIL;
    }
    DWORD answer = WaitForSingleObject(mutex_->get(), NOTICED_WAIT);
    if (answer == WAIT_TIMEOUT) {
        VORNA_LOG(LOG_NOTICE, "Waiting for another owner of the lock : %S", name_.text.c_str());
        answer = WaitForSingleObject(mutex_->get(), LONGEST_WAIT - NOTICED_WAIT);
    }
    if (answer == WAIT_OBJECT_0 || answer == WAIT_ABANDONED)
        return S_OK;
    VORNA_LOG(LOG_ERROR, "The lock was not given up in time : %S", name_.text.c_str());
    return E_FAIL;
}

void NamedLock::Unlock() {
    if (std::exchange(result_, E_FAIL) != S_OK)
        return;
    VORNA_LOG(LOG_TRACE, "Unlocking : %S", name_.text.c_str());
    ReleaseMutex(mutex_->get());
    own_.reset();
}

} // namespace vorna
