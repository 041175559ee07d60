// Lifetimes and the storage limit of an archive. What goes first is always the oldest.

#include "common/com/unique_any.h"
#include "common/log/Logging.h"
#include "persist/PersistFrame.h"
#include "subscription/Subscription.h"
#include "subscription/archive/ArchiveNames.h"

namespace vorna {

// Runs under the archive lock, on the snapshot archive.
HRESULT Subscription::RemoveStream(std::wstring_view snapShotId) {
    GlobalLocks locks;
    ScopedLock lock(locks, ArchiveLockName(record_.subscriptionId));
    if (!lock.Held())
        return lock.Result();
    SamAccessor archive(SnapshotArchivePath(record_.archiveDirectory, record_.subscriptionId), snapShotId);
    return archive.removeFile();
}

bool Subscription::IsExpired(const SnapShot& snapShot) const {
    const SYSTEMTIME now = LocalNow();
    // Without a limit the sum is no date, and no date is never earlier than now.
    const Duration& lifetime = snapShot.alreadyRead == 1 ? info_.LifetimeAfterRead() : info_.LifetimeBeforeRead();
    return IsLater(now, AddDuration(snapShot.accessTime, lifetime));
}

int Subscription::DeleteTheAgedFilesFromArchive() {
    const ScopeTrace trace("Subscription::DeleteTheAgedFilesFromArchive");
    int success = 1;
    try {
        auto& list = record_.snapShots;
        for (auto entry = list.begin(); entry != list.end();) {
            if (!IsExpired(*entry)) {
                ++entry;
                continue;
            }
            VORNA_LOG(LOG_TRACE, "File \"%S\" has aged. Going to remove file from archive", entry->id.c_str());
            if (persistance_.DeleteSnapShot(record_.archiveDirectory, record_.subscriptionId, entry->id) != 1)
                VORNA_LOG(LOG_TRACE, "Could not delete snapshot information from persist file");
            try {
                if (RemoveStream(entry->id) != S_OK)
                    success = 0;
            } catch (...) {
                VORNA_LOG(LOG_TRACE, "Unknown Exception. Unable to remove the file from the archive");
                success = 0;
            }
            entry = list.erase(entry);
        }
    } catch (...) {
        VORNA_LOG(LOG_TRACE, "Unknown Exception Occured");
        success = 0;
    }
    return success;
}

HRESULT Subscription::CountFiles(long& count) {
    GlobalLocks locks;
    ScopedLock lock(locks, ArchiveLockName(record_.subscriptionId));
    if (!lock.Held())
        return lock.Result();
    SamAccessor archive(SnapshotArchivePath(record_.archiveDirectory, record_.subscriptionId));
    return archive.getNumberOfFilesInArchive(count);
}

HRESULT Subscription::RemoveUntilBelow(std::uint64_t limit) {
    const std::wstring archive = SnapshotArchivePath(record_.archiveDirectory, record_.subscriptionId);
    for (;;) {
        // Others may be writing the archive at this moment.
        unique_file file(CreateFileW(archive.c_str(), GENERIC_READ,
                                     FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                                     FILE_ATTRIBUTE_NORMAL, nullptr));
        LARGE_INTEGER size{};
        if (!file || !GetFileSizeEx(file.get(), &size))
            return S_OK;
        file.reset();
        if (static_cast<std::uint64_t>(size.QuadPart) < limit)
            return S_OK;
        if (DeleteTheOldestFileFromArchive() == 0)
            return E_FAIL;
    }
}

HRESULT Subscription::CheckForArchiveOverflow() {
    const ScopeTrace trace("Subscription::CheckForArchiveOverflow");
    try {
        if (record_.archiveDirectory.empty()) {
            VORNA_LOG(LOG_TRACE, "Invalid archivePath. Exiting.");
            return E_FAIL;
        }
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
    } catch (...) {
        VORNA_LOG(LOG_TRACE, "Unknown Exception Occured");
        return E_FAIL;
    }
}

// The first entry of the index, read under the archive lock.
bool Subscription::FindOldest(std::wstring& snapShotId) {
    GlobalLocks locks;
    ScopedLock lock(locks, ArchiveLockName(record_.subscriptionId));
    if (!lock.Held())
        return false;
    VORNA_LOG(LOG_TRACE, "Archive \"%S\" Overflow Occured. Going to remove oldest file from the archive",
              SnapshotArchivePath(record_.archiveDirectory, record_.subscriptionId).c_str());
    const std::wstring stream = SnapShotInfoStream(record_.subscriptionId);
    std::wstring index;
    (void)ReadStream(ConfigArchivePath(record_.archiveDirectory, record_.subscriptionId), stream, index);
    XmlAccessor accessor;
    if (accessor.Create() != S_OK)
        return false;
    if (accessor.Load(index) != S_OK) {
        VORNA_LOG(LOG_TRACE, "Load XML of \"%S\" data failed", stream.c_str());
        return false;
    }
    std::wstring ids, delimiter;
    if (accessor.QueryText(L"/SnapShots/SnapShot/@Id", ids) != S_OK) {
        VORNA_LOG(LOG_TRACE, "Failed to get /SnapShots/SnapShot/@Id from the Snapshot xml");
        return false;
    }
    if (accessor.GetDelimiter(delimiter) != S_OK) {
        VORNA_LOG(LOG_TRACE, "get_delimiter() failed");
        return false;
    }
    snapShotId = ids.substr(0, ids.find_first_of(delimiter));
    return !snapShotId.empty();
}

int Subscription::DeleteTheOldestFileFromArchive() {
    const ScopeTrace trace("Subscription::DeleteTheOldestFileFromArchive");
    try {
        std::wstring oldest;
        if (!FindOldest(oldest))
            return 0;
        if (persistance_.DeleteSnapShot(record_.archiveDirectory, record_.subscriptionId, oldest) != 1)
            VORNA_LOG(LOG_TRACE, "Could not delete snapshot information from persist file");
        return RemoveStream(oldest) == S_OK ? 1 : 0;
    } catch (...) {
        VORNA_LOG(LOG_TRACE, "Unknown Exception Occured");
        return 0;
    }
}

} // namespace vorna
