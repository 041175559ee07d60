#include "tools/OrphanedArchives.h"

#include "common/com/paths.h"
#include "common/com/results.h"
#include "common/com/unique_any.h"
#include "persist/SubscriptionPersistance.h"
#include "subscription/archive/SubscriptionArchive.h"
#include "tools/ArchiveList.h"
#include "tools/Columns.h"
#include "tools/Components.h"

#include <algorithm>
#include <cwctype>
#include <iterator>
#include <map>
#include <string_view>
#include <utility>

namespace vornactl {

namespace {

using namespace vorna;

constexpr wchar_t FINDING[] = L"looking for orphaned archives";
constexpr wchar_t REMOVING[] = L"removing orphaned archives";
constexpr wchar_t LOCKED[] = L"A registration or a renewal did not end in time. Nothing was removed.";

// In units of a file time.
constexpr std::uint64_t TEN_MINUTES = 600ull * 10'000'000;
// serviceId, serviceURI, portID.
constexpr int SERVICE_LEVELS = 3;

// Ordered by service and ID.
using Archives = std::map<std::pair<std::wstring, std::wstring>, OrphanedArchive>;

// As file names are compared.
bool StartsWith(std::wstring_view text, std::wstring_view start) {
    const auto length = static_cast<int>(start.size());
    return text.size() >= start.size() &&
           CompareStringOrdinal(text.data(), length, start.data(), length, TRUE) == CSTR_EQUAL;
}

bool IsSameName(std::wstring_view one, std::wstring_view other) {
    return one.size() == other.size() && StartsWith(one, other);
}

// The ID in the name of an archive's file; empty for any other file.
std::wstring_view IdOf(std::wstring_view name) {
    for (const std::wstring_view kind : {L"config_", L"snapshot_"}) {
        if (!StartsWith(name, kind))
            continue;
        name.remove_prefix(kind.size());
        for (const std::wstring_view ending : {L"-journal", L"-new"})
            if (name.size() >= ending.size() && IsSameName(name.substr(name.size() - ending.size()), ending))
                return name.substr(0, name.size() - ending.size());
        return name;
    }
    return {};
}

// Runs work on every entry of a folder. A folder that does not exist has none.
template <typename Work>
void ForEachEntry(const std::wstring& folder, Work work) {
    WIN32_FIND_DATAW entry;
    const unique_find search(FindFirstFileW((long_path(folder) + L"\\*").c_str(), &entry));
    for (bool found = static_cast<bool>(search); found; found = FindNextFileW(search.get(), &entry))
        if (const std::wstring_view name = entry.cFileName; name != L"." && name != L"..")
            work(entry);
    const DWORD error = GetLastError();
    if (error != ERROR_NO_MORE_FILES && error != ERROR_FILE_NOT_FOUND && error != ERROR_PATH_NOT_FOUND)
        throw Failure(result_from_win32(error), FINDING, L"This folder cannot be read: " + folder);
}

void AddFile(const std::wstring& service, const WIN32_FIND_DATAW& entry, Archives& archives) {
    const std::wstring id(IdOf(entry.cFileName));
    if (id.empty())
        return;
    OrphanedArchive& archive = archives[{service, id}];
    archive.service = service;
    archive.subscriptionId = id;
    archive.files.push_back(ArchiveDirectory(service) + L"\\" + entry.cFileName);
    archive.bytes += std::uint64_t{entry.nFileSizeHigh} << 32 | entry.nFileSizeLow;
    const FILETIME& change = entry.ftLastWriteTime;
    archive.lastChange =
        std::max(archive.lastChange, std::uint64_t{change.dwHighDateTime} << 32 | change.dwLowDateTime);
}

// service: the path of a service, or its first pieces.
void ReadFolders(const std::wstring& service, int level, Archives& archives) {
    ForEachEntry(ArchiveDirectory(service), [&](const WIN32_FIND_DATAW& entry) {
        const bool isFolder = (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
        // Links are not followed, because they may lead out of the tree.
        const bool isLink = (entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
        if (level < SERVICE_LEVELS && isFolder && !isLink)
            ReadFolders(service.empty() ? entry.cFileName : service + L"\\" + entry.cFileName, level + 1, archives);
        else if (level == SERVICE_LEVELS && !isFolder)
            AddFile(service, entry, archives);
    });
}

// An archive manager may give other files of an archive names that continue its own, such as config_<ID>.lock: they are
// in use too.
bool BelongsTo(const OrphanedArchive& archive, const SubscriptionListEntry& record) {
    const std::wstring& id = record.subscriptionId;
    return IsSameName(archive.service, ServiceOf(record.clientCookie)) && StartsWith(archive.subscriptionId, id) &&
           (archive.subscriptionId.size() == id.size() || !std::iswalnum(archive.subscriptionId[id.size()]));
}

// A renewal writes the files of its new archive before the record that names them, and holds the lock of its
// registration meanwhile. So once this lock was free, files that were found before have a record or are orphaned.
void AwaitRenewals(const std::vector<OrphanedArchive>& orphans) {
    SubscriptionPersistance persistance;
    for (const SubscriptionListEntry& record : ReadRecords(persistance)) {
        const std::wstring service = ServiceOf(record.clientCookie);
        if (!record.valid || std::none_of(orphans.begin(), orphans.end(), [&](const OrphanedArchive& orphan) {
                return IsSameName(orphan.service, service);
            }))
            continue;
        const NamedLock renewal = RegistrationLock(record.clientCookie);
        if (!renewal.Held())
            throw Failure(renewal.Result(), REMOVING, LOCKED);
    }
}

bool ChangedRecently(const OrphanedArchive& archive) {
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    return (std::uint64_t{now.dwHighDateTime} << 32 | now.dwLowDateTime) < archive.lastChange + TEN_MINUTES;
}

// Stops at the first file that cannot be deleted: an archive must not lose its journal.
void RemoveFiles(const OrphanedArchive& archive, OrphanRemoval& removal) {
    const NamedLock lock = SubscriptionArchive(ArchiveDirectory(archive.service), archive.subscriptionId).Lock();
    if (!lock.Held()) {
        removal.problems.emplace_back(lock.Result(), L"removing the archive " + archive.subscriptionId);
        return;
    }
    for (const std::wstring& path : archive.files) {
        const std::wstring file = long_path(path);
        SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_NORMAL);
        if (DeleteFileW(file.c_str())) {
            removal.removed.push_back(path);
        } else if (const DWORD error = GetLastError(); error != ERROR_FILE_NOT_FOUND) {
            removal.problems.emplace_back(result_from_win32(error), L"removing " + path);
            return;
        }
    }
}

// The service's folder and its parents, up to and including Archives; stops at the first one that is not empty.
void RemoveEmptyFolders(const std::wstring& service, OrphanRemoval& removal) {
    std::wstring folder = ArchiveDirectory(service);
    for (int level = 0; level <= SERVICE_LEVELS; ++level) {
        if (!RemoveDirectoryW(long_path(folder).c_str()))
            return;
        removal.removed.push_back(folder);
        folder.erase(folder.find_last_of(L'\\'));
    }
}

std::wstring LocalText(std::uint64_t time) {
    const FILETIME fileTime{static_cast<DWORD>(time), static_cast<DWORD>(time >> 32)};
    SYSTEMTIME utc{}, local{};
    if (!FileTimeToSystemTime(&fileTime, &utc) || !SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local))
        return L"-";
    wchar_t text[80];
    swprintf(text, std::size(text), L"%04u-%02u-%02u %02u:%02u:%02u", local.wYear, local.wMonth, local.wDay,
             local.wHour, local.wMinute, local.wSecond);
    return text;
}

} // namespace

OrphanSearch FindOrphans() {
    RequireComponent(FINDING);
    // Files before records: an archive that is registered in between has its record when that is read.
    Archives archives;
    ReadFolders({}, 0, archives);
    SubscriptionPersistance persistance;
    const SubscriptionList records = ReadRecords(persistance);
    OrphanSearch search{{}, !records.empty() || persistance.HasDocument()};
    for (auto& [key, archive] : archives) {
        if (std::any_of(records.begin(), records.end(), [&](const SubscriptionListEntry& record) {
                return record.valid && BelongsTo(archive, record);
            }))
            continue;
        std::sort(archive.files.begin(), archive.files.end());
        search.archives.push_back(std::move(archive));
    }
    return search;
}

OrphanRemoval RemoveOrphans() {
    OrphanRemoval removal;
    const std::vector<OrphanedArchive> before = FindOrphans().archives;
    if (before.empty())
        return removal;
    AwaitRenewals(before);
    // No archive is registered meanwhile.
    const NamedLock folders = FolderLock();
    if (!folders.Held())
        throw Failure(folders.Result(), REMOVING, LOCKED);
    const OrphanSearch now = FindOrphans();
    if (!now.recordExists)
        throw Failure(HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), REMOVING + (L" without the file " + RecordFile()),
                      NO_RECORD);
    for (const OrphanedArchive& orphan : now.archives) {
        if (std::none_of(before.begin(), before.end(), [&](const OrphanedArchive& each) {
                return each.service == orphan.service && each.subscriptionId == orphan.subscriptionId;
            }))
            continue;
        if (ChangedRecently(orphan)) {
            removal.recent.push_back(orphan);
            continue;
        }
        RemoveFiles(orphan, removal);
        RemoveEmptyFolders(orphan.service, removal);
    }
    return removal;
}

std::vector<std::wstring> FormatOrphans(const std::vector<OrphanedArchive>& archives) {
    std::vector<std::vector<std::wstring>> rows{{L"ID", L"SERVICE", L"KB", L"LAST CHANGE"}};
    for (const OrphanedArchive& archive : archives)
        rows.push_back({archive.subscriptionId, archive.service, std::to_wstring((archive.bytes + 1023) / 1024),
                        LocalText(archive.lastChange)});
    return AlignColumns(rows, {2});
}

} // namespace vornactl
