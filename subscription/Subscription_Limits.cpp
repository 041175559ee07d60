// Lifetimes and the storage limit of an archive. The oldest snapshots are removed first.

#include "common/com/files.h"
#include "common/log/CatchAll.h"
#include "subscription/Subscription.h"

namespace vorna {

// Acquires the archive lock.
HRESULT Subscription::RemoveStream(std::wstring_view snapShotId) {
    const SubscriptionArchive archive = record_.Archive();
    const NamedLock lock = archive.Lock();
    return lock.Held() ? archive.Remove(snapShotId) : lock.Result();
}

bool Subscription::IsExpired(const SnapShot& snapShot) const {
    const SYSTEMTIME now = LocalNow();
    // Without a limit the sum is not a valid date, which is never earlier than now.
    const Duration& lifetime = snapShot.alreadyRead == 1 ? info_.LifetimeAfterRead() : info_.LifetimeBeforeRead();
    return IsLater(now, AddDuration(snapShot.accessTime, lifetime));
}

int Subscription::DeleteTheAgedFilesFromArchive() {
    return CatchAll("Subscription::DeleteTheAgedFilesFromArchive", 0, [&] {
        int success = 1;
        std::erase_if(record_.snapShots, [&](const SnapShot& snapShot) {
            if (!IsExpired(snapShot))
                return false;
            VORNA_LOG(LOG_TRACE, "File \"%S\" has aged. Going to remove file from archive", snapShot.id.c_str());
            if (persistance_.DeleteSnapShot(record_.Archive(), snapShot.id) != 1)
                VORNA_LOG(LOG_TRACE, "Could not delete snapshot information from persist file");
            const HRESULT removed = CatchAll(
                E_FAIL, [&] { return RemoveStream(snapShot.id); },
                "Unknown Exception. Unable to remove the file from the archive");
            if (removed != S_OK)
                success = 0;
            return true;
        });
        return success;
    });
}

HRESULT Subscription::CountFiles(long& count) {
    const SubscriptionArchive archive = record_.Archive();
    const NamedLock lock = archive.Lock();
    return lock.Held() ? archive.Count(count) : lock.Result();
}

HRESULT Subscription::RemoveUntilBelow(std::uint64_t limit) {
    const std::wstring path = record_.Archive().SnapShotsPath();
    for (;;) {
        unique_file file = open_for_reading(path);
        LARGE_INTEGER size{};
        if (!file || !GetFileSizeEx(file.get(), &size) || static_cast<std::uint64_t>(size.QuadPart) < limit)
            return S_OK;
        file.reset();
        if (DeleteTheOldestFileFromArchive() == 0)
            return E_FAIL;
    }
}

HRESULT Subscription::CheckForArchiveOverflow() {
    return CatchAll("Subscription::CheckForArchiveOverflow", E_FAIL, [&]() -> HRESULT {
        if (record_.archiveDirectory.empty()) {
            VORNA_LOG(LOG_TRACE, "Invalid archivePath. Exiting.");
            return E_FAIL;
        }
        // Not used for queries: if an accessor cannot be created, the check fails before it removes anything.
        XmlAccessor accessor;
        if (HRESULT result = accessor.Create(); result != S_OK)
            return result;
        if (info_.SizeInKilobytes())
            return RemoveUntilBelow(std::uint64_t{info_.MaxStorageSize()} * 1024);
        long count = 0;
        if (HRESULT result = CountFiles(count); result != S_OK)
            return result;
        if (count > 0 && static_cast<std::uint64_t>(count) > info_.MaxStorageSize())
            return DeleteTheOldestFileFromArchive() == 1 ? S_OK : E_FAIL;
        return S_OK;
    });
}

// The first entry of the index, read under the archive lock.
bool Subscription::FindOldest(std::wstring& snapShotId) {
    const SubscriptionArchive archive = record_.Archive();
    const NamedLock lock = archive.Lock();
    if (!lock.Held())
        return false;
    VORNA_LOG(LOG_TRACE, "Archive \"%S\" Overflow Occured. Going to remove oldest file from the archive",
              archive.SnapShotsPath().c_str());
    SnapShotIndex index;
    (void)archive.ReadIndex(index);
    return index.FindOldest(archive.IndexStream(), snapShotId) == S_OK;
}

int Subscription::DeleteTheOldestFileFromArchive() {
    return CatchAll("Subscription::DeleteTheOldestFileFromArchive", 0, [&] {
        std::wstring oldest;
        if (!FindOldest(oldest))
            return 0;
        if (persistance_.DeleteSnapShot(record_.Archive(), oldest) != 1)
            VORNA_LOG(LOG_TRACE, "Could not delete snapshot information from persist file");
        return RemoveStream(oldest) == S_OK ? 1 : 0;
    });
}

} // namespace vorna
