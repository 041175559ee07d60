// Lifetimes and the storage limit of an archive. The oldest snapshots are removed first.

#include "common/log/CatchAll.h"
#include "subscription/Subscription.h"

#include <algorithm>

namespace vorna {

bool Subscription::IsExpired(const SnapShot& snapShot) const {
    const SYSTEMTIME now = LocalNow();
    // Without a limit the sum is not a valid date, which is never earlier than now.
    const Duration& lifetime = snapShot.alreadyRead == 1 ? info_.LifetimeAfterRead() : info_.LifetimeBeforeRead();
    return IsLater(now, AddDuration(snapShot.accessTime, lifetime));
}

int Subscription::DeleteTheAgedFilesFromArchive() {
    return CatchAll("Subscription::DeleteTheAgedFilesFromArchive", 0, [&] {
        const auto expired = [&](const SnapShot& snapShot) { return IsExpired(snapShot); };
        if (std::none_of(record_.snapShots.begin(), record_.snapShots.end(), expired))
            return 1;
        const SubscriptionArchive archive = record_.Archive();
        const NamedLock lock = archive.Lock();
        SnapShotIndex index;
        // Read again, because other clients may have read the snapshots since this record was loaded.
        if (!lock.Held() || archive.ReadIndex(index) != S_OK || index.Read(record_.snapShots) != S_OK)
            return 0;
        std::vector<std::wstring> aged;
        for (const SnapShot& snapShot : record_.snapShots) {
            if (!expired(snapShot))
                continue;
            VORNA_LOG(LOG_TRACE, "File \"%S\" has aged. Going to remove file from archive", snapShot.id.c_str());
            aged.push_back(snapShot.id);
        }
        return RemoveAged(archive, index, aged);
    });
}

// Removes the entries first, in one write; entries whose streams cannot be removed are written back. index: the index
// with all entries.
int Subscription::RemoveAged(const SubscriptionArchive& archive, SnapShotIndex& index,
                             const std::vector<std::wstring>& ids) {
    if (ids.empty())
        return 1;
    if (persistance_.DeleteSnapShots(archive, ids) != 1)
        VORNA_LOG(LOG_TRACE, "Could not delete snapshot information from persist file");
    std::vector<std::wstring> removed;
    for (const std::wstring& id : ids) {
        const HRESULT result = CatchAll(
            E_FAIL, [&] { return archive.Remove(id); },
            "Unknown Exception. Unable to remove the file from the archive");
        if (result == S_OK || IsMissing(result))
            removed.push_back(id);
    }
    std::erase_if(record_.snapShots, [&](const SnapShot& snapShot) {
        return std::find(removed.begin(), removed.end(), snapShot.id) != removed.end();
    });
    if (removed.size() == ids.size())
        return 1;
    if (index.Remove(removed) != S_OK || archive.WriteIndex(index) != S_OK)
        VORNA_LOG(LOG_ERROR, "The entries of snapshots that could not be removed could not be written back");
    return 0;
}

HRESULT Subscription::RemoveUntilBelow(std::uint64_t limit) {
    const SubscriptionArchive archive = record_.Archive();
    std::uint64_t size = 0;
    for (bool reconciled = false; archive.Size(size) == S_OK && size >= limit; reconciled = true) {
        long snapShots = 0;
        if (!reconciled && archive.Reconcile(snapShots) == S_OK && archive.Size(size) == S_OK && size < limit)
            return S_OK;
        if (DeleteTheOldestFileFromArchive() == 0)
            return E_FAIL;
    }
    return S_OK;
}

HRESULT Subscription::CheckForArchiveOverflow() {
    bool overflows = false;
    return CheckForArchiveOverflow(overflows);
}

HRESULT Subscription::CheckForArchiveOverflow(bool& overflows) {
    overflows = false;
    return CatchAll("Subscription::CheckForArchiveOverflow", E_FAIL, [&]() -> HRESULT {
        if (record_.archiveDirectory.empty()) {
            VORNA_LOG(LOG_TRACE, "Invalid archivePath. Exiting.");
            return E_FAIL;
        }
        // Not used for queries: if an accessor cannot be created, the check fails before it removes anything.
        XmlAccessor accessor;
        if (HRESULT result = accessor.Create(); result != S_OK)
            return result;
        const SubscriptionArchive archive = record_.Archive();
        // Held for the whole check, so that two concurrent checks do not remove one snapshot too many.
        const NamedLock lock = archive.Lock();
        if (!lock.Held())
            return lock.Result();
        if (info_.SizeInKilobytes())
            return RemoveUntilBelow(std::uint64_t{info_.MaxStorageSize()} * 1024);
        const auto isAboveLimit = [&](long count) {
            return count > 0 && static_cast<std::uint64_t>(count) > info_.MaxStorageSize();
        };
        long count = 0;
        HRESULT result = archive.Count(count);
        if (result == S_OK && isAboveLimit(count))
            result = archive.Reconcile(count);
        if (result != S_OK || !isAboveLimit(count))
            return result;
        overflows = isAboveLimit(count - 1);
        return DeleteTheOldestFileFromArchive() == 1 ? S_OK : E_FAIL;
    });
}

int Subscription::DeleteTheOldestFileFromArchive() {
    return CatchAll("Subscription::DeleteTheOldestFileFromArchive", 0, [&] {
        const SubscriptionArchive archive = record_.Archive();
        const NamedLock lock = archive.Lock();
        if (!lock.Held())
            return 0;
        VORNA_LOG(LOG_TRACE, "Archive \"%S\" Overflow Occured. Going to remove oldest file from the archive",
                  archive.SnapShotsPath().c_str());
        for (;;) {
            SnapShotIndex index;
            std::wstring oldest;
            (void)archive.ReadIndex(index);
            if (index.FindOldest(archive.IndexStream(), oldest) != S_OK)
                return 0;
            const bool deleted = persistance_.DeleteSnapShot(archive, oldest) == 1;
            if (!deleted)
                VORNA_LOG(LOG_TRACE, "Could not delete snapshot information from persist file");
            const HRESULT removed = archive.Remove(oldest);
            if (removed == S_OK)
                return 1;
            // An entry without a stream is not a snapshot; the next entry is the oldest.
            if (deleted && IsMissing(removed))
                continue;
            // The snapshot still exists, so its entry is written back.
            if (deleted && archive.WriteIndex(index) != S_OK)
                VORNA_LOG(LOG_ERROR, "The entry of a snapshot that could not be removed could not be written back : %S",
                          oldest.c_str());
            return 0;
        }
    });
}

} // namespace vorna
