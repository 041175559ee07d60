// What all kinds of registration share: the ten-minute timer of the component's own, and the archives' folders.

#include "common/com/bstr.h"
#include "common/com/unique_any.h"
#include "common/log/Logging.h"
#include "common/services/Directories.h"
#include "common/services/platformservices.h"
#include "persist/PersistFrame.h"
#include "src/ScheduleDocuments.h"
#include "subscription/RegistrationLock.h"
#include "subscription/Subscription.h"
#include "subscription/TimerSender.h"
#include "subscription/archive/ArchiveNames.h"

#include <algorithm>
#include <vector>

namespace vorna {

namespace {

constexpr Duration MAINTENANCE_FREQUENCY{.minutes = 10};

// The directory operations take narrow paths; a path that has no narrow form is refused, not mangled.
std::string NarrowPath(const std::wstring& path) {
    char narrow[512];
    BOOL mangled = FALSE;
    const int length =
        WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, path.c_str(), -1, narrow, sizeof narrow, nullptr, &mangled);
    return length > 0 && !mangled ? std::string(narrow) : std::string();
}

// The files of a folder that match a pattern, with their paths.
std::vector<std::wstring> FilesLike(const std::wstring& folder, const std::wstring& pattern) {
    std::vector<std::wstring> files;
    WIN32_FIND_DATAW entry;
    unique_find search(FindFirstFileW((folder + L"\\" + pattern).c_str(), &entry));
    if (!search)
        return files;
    do {
        if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
            files.push_back(folder + L"\\" + entry.cFileName);
    } while (FindNextFileW(search.get(), &entry));
    return files;
}

} // namespace

HRESULT Subscription::GetMaintainanceTimerInfo(std::wstring& schedule) {
    const ScopeTrace trace("Subscription::GetMaintainanceTimerInfo");
    try {
        NotificationInfo notification;
        notification.entries.push_back({.type = NOTIFY_COM,
                                        .client = PROGID_VORNA,
                                        .parameter = std::wstring(MAINTENANCE_COOKIE),
                                        .timeout = std::nullopt,
                                        .retryAttempts = 0,
                                        .retryFrequency = std::nullopt});
        auto document = BuildScheduleInfo(MAINTENANCE_FREQUENCY, AddDuration(LocalNow(), MAINTENANCE_FREQUENCY),
                                          std::nullopt, notification);
        schedule = document.value_or(L"");
        return document ? S_OK : E_FAIL;
    } catch (...) {
        VORNA_LOG(LOG_TRACE, "Unknown Exception Occured");
        return E_FAIL;
    }
}

HRESULT Subscription::RegisterforMaintananceEvent(std::wstring& maintenanceId) {
    const ScopeTrace trace("Subscription::RegisterforMaintananceEvent");
    maintenanceId.clear();
    try {
        VORNA_LOG(LOG_TRACE, "Goint to Register for Maintainance Thread");
        com_ptr<IZEBTimer> timer;
        if (PlatformServices::CreateInstance(PROGID_TIMER, nullptr, timer) != S_OK) {
            VORNA_LOG(LOG_TRACE, "Unable to create Timer Instance.");
            return E_FAIL;
        }
        bstr ticket;
        if (timer->GetTicket(ticket.put()) != S_OK) {
            VORNA_LOG(LOG_TRACE, "Unable to Register with Timer ");
            return E_FAIL;
        }
        std::wstring schedule;
        if (HRESULT result = GetMaintainanceTimerInfo(schedule); result != S_OK)
            return result;
        bstr id;
        HRESULT result = timer->Subscribe(ticket.get(), bstr(schedule).get(), id.put());
        if (result == S_OK)
            maintenanceId = id.str();
        return result;
    } catch (...) {
        VORNA_LOG(LOG_TRACE, "Unknown Exception Occured");
        return E_FAIL;
    }
}

HRESULT Subscription::EndMaintenanceTimer(std::wstring_view clientId, std::wstring_view maintenanceId) {
    TimerSender timer(nullptr, std::wstring(clientId));
    CPWStringBuffer ignoredText;
    if (HRESULT result = timer.Create(ignoredText); result != S_OK) {
        VORNA_LOG(LOG_TRACE, "Failed to create an instance of Timer");
        return result;
    }
    return timer.Unsubscribe(maintenanceId);
}

bool Subscription::CreateBaseDir() {
    const std::string path = NarrowPath(record_.archiveDirectory);
    if (!path.empty())
        VORNAUTILITY::CreateDirectories(path.c_str());
    const DWORD attributes = GetFileAttributesW(record_.archiveDirectory.c_str());
    return !path.empty() && attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

// The service's folder is shared by all archives of the service: it goes with the last of them.
void Subscription::RemoveBaseDir() {
    const ScopeTrace trace("Subscription::RemoveBaseDir");
    // Nobody makes the folder's next archive meanwhile.
    RegistrationLock registration;
    if (!record_.subscriptionId.empty())
        RemoveArchives(record_.subscriptionId);
    if (!FilesLike(record_.archiveDirectory, L"config_*").empty() ||
        !FilesLike(record_.archiveDirectory, L"snapshot_*").empty())
        return;
    const std::string path = NarrowPath(record_.archiveDirectory);
    if (path.empty() || !VORNAUTILITY::DeleteDirectory(path.c_str(), true))
        return;
    // The folders above, Archives included, stay where another service has archives below them.
    std::wstring parent = record_.archiveDirectory;
    for (int level = 0; level < 3; ++level) {
        parent.erase(parent.find_last_of(L'\\'));
        if (!RemoveDirectoryW(parent.c_str()))
            return;
    }
}

void Subscription::RemoveArchives(std::wstring_view subscriptionId) {
    GlobalLocks locks;
    ScopedLock lock(locks, ArchiveLockName(subscriptionId));
    const std::wstring id(subscriptionId);
    for (const std::wstring& pattern : {L"config_" + id + L"*", L"snapshot_" + id + L"*"}) {
        for (const std::wstring& file : FilesLike(record_.archiveDirectory, pattern)) {
            SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_NORMAL);
            if (!DeleteFileW(file.c_str()))
                VORNA_LOG(LOG_WARNING, "An archive could not be deleted (error %lu) : %S", GetLastError(),
                          file.c_str());
        }
    }
}

// Everything that was captured, under another subscription ID. The old archives stay as they are.
HRESULT Subscription::CopyArchives(std::wstring_view fromId, std::wstring_view toId) {
    GlobalLocks locks;
    ScopedLock lock(locks, ArchiveLockName(fromId));
    if (!lock.Held())
        return lock.Result();
    const std::wstring& directory = record_.archiveDirectory;
    std::wstring text;
    // The document too, so that the archives are whole under either name.
    HRESULT result = ReadStream(ConfigArchivePath(directory, fromId), SubscriptionStream(fromId), text);
    if (result == S_OK)
        result = WriteStream(ConfigArchivePath(directory, toId), SubscriptionStream(toId), text);
    if (result != S_OK)
        return result;
    // The index goes over as it stands: it may hold times that only its text can express.
    result = ReadStream(ConfigArchivePath(directory, fromId), SnapShotInfoStream(fromId), text);
    if (IsMissing(result))
        return S_OK;
    if (result == S_OK)
        result = WriteStream(ConfigArchivePath(directory, toId), SnapShotInfoStream(toId), text);
    // Read anew under the lock: captures came in since the record was read.
    std::vector<SnapShot> snapShots;
    if (result == S_OK)
        result = persistance_.GetSnapShots(directory, fromId, snapShots);
    for (const SnapShot& snapShot : snapShots) {
        if (result != S_OK)
            break;
        result = ReadStream(SnapshotArchivePath(directory, fromId), snapShot.id, text);
        if (IsMissing(result))
            result = S_OK;
        else if (result == S_OK)
            result = WriteStream(SnapshotArchivePath(directory, toId), snapShot.id, text);
    }
    return result;
}

// What a callback stored under the old name after everything was copied. Then the old archives go.
void Subscription::MoveLateSnapShots(std::wstring_view fromId, std::wstring_view toId) {
    const std::wstring& directory = record_.archiveDirectory;
    GlobalLocks locks;
    ScopedLock lock(locks, ArchiveLockName(fromId));
    std::vector<SnapShot> late, known;
    if (!lock.Held() || persistance_.GetSnapShots(directory, fromId, late) != S_OK ||
        persistance_.GetSnapShots(directory, toId, known) != S_OK)
        return;
    for (const SnapShot& snapShot : late) {
        const auto same = [&](const SnapShot& other) { return other.id == snapShot.id; };
        std::wstring text;
        if (std::any_of(known.begin(), known.end(), same) ||
            ReadStream(SnapshotArchivePath(directory, fromId), snapShot.id, text) != S_OK)
            continue;
        // Where it cannot be moved, the old archives stay: nobody reads them, and nothing is lost.
        if (persistance_.AddSnapShot(directory, toId, snapShot) != S_OK ||
            WriteStream(SnapshotArchivePath(directory, toId), snapShot.id, text) != S_OK)
            return;
    }
    RemoveArchives(fromId);
}

} // namespace vorna
