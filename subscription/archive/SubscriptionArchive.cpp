#include "subscription/archive/SubscriptionArchive.h"

#include "common/com/files.h"
#include "common/com/paths.h"
#include "common/com/results.h"
#include "common/log/Logging.h"
#include "common/services/Directories.h"
#include "subscription/archive/SamAccessor.h"

#include <algorithm>
#include <set>

namespace vorna {

namespace {

constexpr HRESULT DAMAGED = HRESULT_FROM_WIN32(ERROR_FILE_CORRUPT);

bool NoFileMatches(const std::wstring& pattern) {
    WIN32_FIND_DATAW entry;
    const unique_find search(FindFirstFileW(pattern.c_str(), &entry));
    return !search && IsMissing(result_from_last_error());
}

} // namespace

std::wstring ArchiveDirectory(std::wstring_view servicePath) {
    return VORNAUTILITY::GetComponentDirectory() + L"Archives\\" + std::wstring(servicePath);
}

bool IsMissing(HRESULT result) {
    return result == HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND) || result == HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND);
}

HRESULT ReadStream(std::wstring_view archive, std::wstring_view name, std::wstring& text) {
    text.clear();
    SamAccessor accessor(archive, name);
    bstr data;
    HRESULT result = accessor.getStreamFromArchive(data);
    if (result != S_OK)
        return FAILED(result) ? result : E_FAIL;
    text = data.str();
    return text.empty() ? HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND) : S_OK;
}

HRESULT WriteStream(std::wstring_view archive, std::wstring_view name, std::wstring_view text) {
    const HRESULT result = SamAccessor(archive, name).addStreamToArchive(text);
    return result == S_OK || FAILED(result) ? result : E_FAIL;
}

NamedLock SubscriptionArchive::Lock() const {
    return NamedLock({L"\\config_" + id_, "Create Archive Global Mutex Failed"});
}

bool SubscriptionArchive::IsGone() const {
    return GetFileAttributesW(long_path(ConfigPath()).c_str()) == INVALID_FILE_ATTRIBUTES &&
           IsMissing(result_from_last_error());
}

HRESULT SubscriptionArchive::ReadDocument(std::wstring& text) const {
    return ReadStream(ConfigPath(), DocumentStream(), text);
}

HRESULT SubscriptionArchive::WriteDocument(std::wstring_view text) const {
    return WriteStream(ConfigPath(), DocumentStream(), text);
}

HRESULT SubscriptionArchive::ReadIndex(SnapShotIndex& index) const {
    std::wstring text;
    const HRESULT result = ReadStream(ConfigPath(), IndexStream(), text);
    if (result != S_OK && !IsMissing(result))
        return result;
    index = SnapShotIndex(std::move(text));
    return S_OK;
}

HRESULT SubscriptionArchive::WriteIndex(const SnapShotIndex& index) const {
    return WriteStream(ConfigPath(), IndexStream(), index.Text());
}

HRESULT SubscriptionArchive::ReadSnapShots(std::vector<SnapShot>& snapShots) const {
    SnapShotIndex index;
    const HRESULT result = ReadIndex(index);
    return result == S_OK ? index.Read(snapShots) : result;
}

HRESULT SubscriptionArchive::Store(std::wstring_view snapShotId, std::wstring_view data) const {
    return WriteStream(SnapShotsPath(), snapShotId, data);
}

HRESULT SubscriptionArchive::Remove(std::wstring_view snapShotId) const {
    return SamAccessor(SnapShotsPath(), snapShotId).removeFile();
}

HRESULT SubscriptionArchive::Count(long& snapShots) const {
    return SamAccessor(SnapShotsPath()).getNumberOfFilesInArchive(snapShots);
}

HRESULT SubscriptionArchive::Size(std::uint64_t& bytes) const {
    const unique_file file = open_for_reading(long_path(SnapShotsPath()));
    LARGE_INTEGER size{};
    if (!file || !GetFileSizeEx(file.get(), &size))
        return S_FALSE;
    bytes = static_cast<std::uint64_t>(size.QuadPart);
    return S_OK;
}

HRESULT SubscriptionArchive::Reconcile(long& snapShots) const {
    SnapShotIndex index;
    std::vector<std::wstring> entries, streams;
    HRESULT result = ReadIndex(index);
    if (result == S_OK)
        result = index.ReadIds(entries);
    if (result != S_OK)
        return result;
    snapShots = static_cast<long>(entries.size());
    // Without an index it is unknown which streams are snapshots.
    if (index.empty())
        return S_OK;
    result = SamAccessor(SnapShotsPath()).ListStreams(streams);
    if (result != S_OK)
        return result == E_NOINTERFACE ? S_OK : result;
    const std::set<std::wstring> named(entries.begin(), entries.end());
    for (const std::wstring& stream : streams) {
        if (named.contains(stream))
            continue;
        VORNA_LOG(LOG_WARNING, "A snapshot without an entry is removed : %S", stream.c_str());
        if (result = Remove(stream); result != S_OK)
            return result;
    }
    const std::set<std::wstring> stored(streams.begin(), streams.end());
    std::erase_if(entries, [&](const std::wstring& entry) { return stored.contains(entry); });
    if (entries.empty())
        return S_OK;
    VORNA_LOG(LOG_WARNING, "Entries without a snapshot are removed, the first is %S", entries.front().c_str());
    snapShots -= static_cast<long>(entries.size());
    result = index.Remove(entries);
    return result == S_OK ? WriteIndex(index) : result;
}

// S_FALSE: the snapshot no longer exists. 0x80070570 (logged): it is damaged.
HRESULT SubscriptionArchive::CopySnapShot(const std::wstring& snapShotId, const SubscriptionArchive& to) const {
    std::wstring text;
    {
        const NamedLock lock = Lock();
        if (!lock.Held())
            return lock.Result();
        const HRESULT read = ReadStream(SnapShotsPath(), snapShotId, text);
        if (read == DAMAGED)
            VORNA_LOG(LOG_ERROR, "A damaged snapshot is not taken over : %S", snapShotId.c_str());
        if (read != S_OK)
            return IsMissing(read) ? S_FALSE : read;
    }
    const NamedLock lock = to.Lock();
    return lock.Held() ? to.Store(snapShotId, text) : lock.Result();
}

HRESULT SubscriptionArchive::CopyTo(const SubscriptionArchive& to) const {
    std::wstring text;
    SnapShotIndex index;
    std::vector<std::wstring> ids, missing;
    {
        const NamedLock lock = Lock();
        if (!lock.Held())
            return lock.Result();
        HRESULT result = ReadDocument(text);
        if (result == S_OK)
            result = ReadIndex(index);
        if (result == S_OK)
            result = index.ReadIds(ids);
        if (result != S_OK)
            return result;
    }
    for (const std::wstring& id : ids) {
        const HRESULT copied = CopySnapShot(id, to);
        if (copied == S_FALSE || copied == DAMAGED)
            missing.push_back(id);
        else if (copied != S_OK)
            return copied;
    }
    const NamedLock lock = to.Lock();
    if (!lock.Held())
        return lock.Result();
    // The document is copied too, so that both copies are complete.
    HRESULT result = to.WriteDocument(text);
    if (result == S_OK && !missing.empty())
        result = index.Remove(missing);
    // The index is copied as text, because it may contain times that cannot be parsed.
    return result == S_OK && !index.empty() ? to.WriteIndex(index) : result;
}

void SubscriptionArchive::MoveLateSnapShotsTo(const SubscriptionArchive& to) const {
    const NamedLock lock = Lock();
    const NamedLock otherLock = to.Lock();
    SnapShotIndex index;
    std::vector<SnapShot> late, known, read;
    // A subscription that was ended meanwhile must not get its archives back.
    if (!lock.Held() || !otherLock.Held() || to.IsGone() || ReadSnapShots(late) != S_OK ||
        to.ReadIndex(index) != S_OK || index.Read(known) != S_OK)
        return;
    bool complete = true;
    for (SnapShot& snapShot : late) {
        const auto same = [&](const SnapShot& other) { return other.id == snapShot.id; };
        if (const auto copy = std::find_if(known.begin(), known.end(), same); copy != known.end()) {
            if (snapShot.alreadyRead > copy->alreadyRead)
                read.push_back(snapShot);
            continue;
        }
        const HRESULT copied = CopySnapShot(snapShot.id, to);
        bool added = false;
        if (copied == S_OK && index.Add(snapShot, SnapShotIndex::Placement::SameSecond, added) != S_OK)
            return;
        complete = complete && (copied == S_OK || copied == S_FALSE);
    }
    // Snapshots that were read since the copy stay marked as read. The other entries stay as they are, because they may
    // contain times that cannot be parsed.
    if ((!read.empty() && index.Refresh(read) != S_OK) || (!index.empty() && to.WriteIndex(index) != S_OK))
        return;
    if (complete)
        RemoveFiles();
}

bool SubscriptionArchive::NoneIn(const std::wstring& directory) {
    const std::wstring folder = long_path(directory);
    return NoFileMatches(folder + L"\\config_*") && NoFileMatches(folder + L"\\snapshot_*");
}

void SubscriptionArchive::RemoveFiles() const {
    const NamedLock lock = Lock();
    if (!lock.Held())
        return;
    for (const std::wstring& archive : {long_path(ConfigPath()), long_path(SnapShotsPath())}) {
        // The archive manager gives its own files the name of the archive with one of these endings.
        for (const wchar_t* end : {L"", L"-journal", L"-new"}) {
            const std::wstring file = archive + end;
            SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_NORMAL);
            if (!DeleteFileW(file.c_str()) && !IsMissing(result_from_last_error()))
                VORNA_LOG(LOG_WARNING, "An archive could not be deleted (error %lu) : %S", GetLastError(),
                          file.c_str());
        }
    }
}

} // namespace vorna
