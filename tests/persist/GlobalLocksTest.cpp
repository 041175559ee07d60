#include "persist/GlobalLocks.h"

#include "subscription/archive/SubscriptionArchive.h"
#include "support/Support.h"

#include <future>

using namespace vorna;

namespace {

// Whether another thread could have the lock at once.
bool IsFree(const wchar_t* mutexName) {
    return std::async(std::launch::async,
                      [&] {
                          unique_handle mutex(CreateMutexW(nullptr, FALSE, mutexName));
                          const DWORD answer = WaitForSingleObject(mutex.get(), 0);
                          if (answer == WAIT_OBJECT_0 || answer == WAIT_ABANDONED)
                              ReleaseMutex(mutex.get());
                          return answer == WAIT_OBJECT_0 || answer == WAIT_ABANDONED;
                      })
        .get();
}

constexpr wchar_t ARCHIVE_MUTEX[] = L"Global\\config_17";

NamedLock ArchiveLock() {
    return SubscriptionArchive(L"C:\\folder", L"17").Lock();
}

} // namespace

TEST(GlobalLocks, NamesThatDifferInBackslashesAreOneLock) {
    for (const wchar_t* name : {L"\\config_17", L"config_17", L"con\\fig\\_17\\"}) {
        NamedLock lock({name, ""});
        EXPECT_FALSE(IsFree(ARCHIVE_MUTEX)) << support::Narrow(name);
        lock.Unlock();
        EXPECT_TRUE(IsFree(ARCHIVE_MUTEX));
        lock.Unlock();
        EXPECT_FALSE(lock.Held()) << "given back once";
    }
}

TEST(GlobalLocks, OwnedTwiceIsGivenBackTwice) {
    {
        const NamedLock outer = ArchiveLock();
        {
            const NamedLock inner = ArchiveLock();
            EXPECT_TRUE(outer.Held() && inner.Held());
        }
        EXPECT_FALSE(IsFree(ARCHIVE_MUTEX));
    }
    EXPECT_TRUE(IsFree(ARCHIVE_MUTEX));
}

TEST(GlobalLocks, LockOfAThreadThatDiedIsTakenOver) {
    unique_handle mutex;
    // Never given back, as in a thread that was ended.
    std::async(std::launch::async, [&] { EXPECT_TRUE((new NamedLock(PersistLock(mutex)))->Held()); }).get();
    EXPECT_TRUE(PersistLock(mutex).Held());
}

TEST(GlobalLocks, FaultGivesTheLockBack) {
    EXPECT_THROW(call_guarded([&] {
                     const NamedLock lock = ArchiveLock();
                     EXPECT_FALSE(IsFree(ARCHIVE_MUTEX));
                     RaiseException(EXCEPTION_ACCESS_VIOLATION, 0, 0, nullptr);
                 }),
                 processor_fault);
    EXPECT_TRUE(IsFree(ARCHIVE_MUTEX));
}
