#include "persist/GlobalLocks.h"

#include "common/com/ProcessorFault.h"
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

} // namespace

TEST(GlobalLocks, NamesThatDifferInBackslashesAreOneLock) {
    GlobalLocks locks;
    for (const wchar_t* name : {L"\\config_17", L"config_17", L"con\\fig\\_17\\"}) {
        ASSERT_HR(S_OK, locks.Lock(name));
        EXPECT_FALSE(IsFree(ARCHIVE_MUTEX)) << support::Narrow(name);
        locks.Unlock(L"\\config_17");
        EXPECT_TRUE(IsFree(ARCHIVE_MUTEX));
    }
}

TEST(GlobalLocks, UnlockOfWhatIsNotLockedDoesNothing) {
    GlobalLocks locks;
    locks.Unlock(PERSIST_LOCK);
    locks.Unlock(L"\\config_17");
    ASSERT_HR(S_OK, locks.Lock(PERSIST_LOCK));
    std::async(std::launch::async, [&] { locks.Unlock(PERSIST_LOCK); }).get();
    auto other = std::async(std::launch::async, [] {
        GlobalLocks waiting;
        const HRESULT result = waiting.Lock(PERSIST_LOCK);
        waiting.Unlock(PERSIST_LOCK);
        return result;
    });
    EXPECT_EQ(std::future_status::timeout, other.wait_for(std::chrono::milliseconds(50))) << "the owner still has it";
    locks.Unlock(PERSIST_LOCK);
    EXPECT_HR(S_OK, other.get());
}

TEST(GlobalLocks, OwnedTwiceIsGivenBackTwice) {
    GlobalLocks outer, inner;
    ASSERT_HR(S_OK, outer.Lock(L"\\config_17"));
    {
        ScopedLock again(inner, L"\\config_17");
        EXPECT_TRUE(again.Held());
    }
    EXPECT_FALSE(IsFree(ARCHIVE_MUTEX));
    outer.Unlock(L"\\config_17");
    EXPECT_TRUE(IsFree(ARCHIVE_MUTEX));
}

TEST(GlobalLocks, LockOfAThreadThatDiedIsTakenOver) {
    std::async(std::launch::async, [] {
        GlobalLocks locks;
        EXPECT_HR(S_OK, locks.Lock(PERSIST_LOCK));
        // The handle stays open, as in a thread that was ended.
        new GlobalLocks(std::move(locks));
    }).get();
    GlobalLocks locks;
    EXPECT_HR(S_OK, locks.Lock(PERSIST_LOCK));
    locks.Unlock(PERSIST_LOCK);
}

TEST(GlobalLocks, FaultGivesTheLockBack) {
    GlobalLocks locks;
    EXPECT_THROW(call_guarded([&] {
                     ScopedLock lock(locks, L"\\config_17");
                     EXPECT_FALSE(IsFree(ARCHIVE_MUTEX));
                     RaiseException(EXCEPTION_ACCESS_VIOLATION, 0, 0, nullptr);
                 }),
                 processor_fault);
    EXPECT_TRUE(IsFree(ARCHIVE_MUTEX));
}
