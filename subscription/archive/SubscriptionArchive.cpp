#include "subscription/archive/SubscriptionArchive.h"

#include "common/log/Logging.h"
#include "common/services/Directories.h"
#include "subscription/archive/SamAccessor.h"

#include <algorithm>

namespace vorna {

namespace {

// The paths of the files in a folder that match a pattern.
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
    return SamAccessor(archive, name).addStreamToArchive(text);
}

NamedLock SubscriptionArchive::Lock() const {
    return NamedLock({L"\\config_" + id_, "Create Archive Global Mutex Failed"});
}

bool SubscriptionArchive::Exists() const {
    return GetFileAttributesW(ConfigPath().c_str()) != INVALID_FILE_ATTRIBUTES;
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

HRESULT SubscriptionArchive::CopyTo(const SubscriptionArchive& to) const {
    std::wstring text;
    // The document is copied too, so that both copies are complete.
    HRESULT result = ReadDocument(text);
    if (result == S_OK)
        result = to.WriteDocument(text);
    if (result != S_OK)
        return result;
    // The index is copied as text, because it may contain times that cannot be parsed.
    SnapShotIndex index;
    result = ReadIndex(index);
    if (result != S_OK || index.empty())
        return result;
    result = to.WriteIndex(index);
    std::vector<SnapShot> snapShots;
    if (result == S_OK)
        result = index.Read(snapShots);
    for (const SnapShot& snapShot : snapShots) {
        if (result != S_OK)
            break;
        result = ReadStream(SnapShotsPath(), snapShot.id, text);
        if (IsMissing(result))
            result = S_OK;
        else if (result == S_OK)
            result = to.Store(snapShot.id, text);
    }
    return result;
}

void SubscriptionArchive::MoveLateSnapShotsTo(const SubscriptionArchive& to) const {
    const NamedLock lock = Lock();
    const NamedLock otherLock = to.Lock();
    SnapShotIndex index;
    std::vector<SnapShot> late, known;
    // A subscription that was ended meanwhile must not get its archives back.
    if (!lock.Held() || !otherLock.Held() || !to.Exists() || ReadSnapShots(late) != S_OK ||
        to.ReadIndex(index) != S_OK || index.Read(known) != S_OK)
        return;
    for (const SnapShot& snapShot : late) {
        const auto same = [&](const SnapShot& other) { return other.id == snapShot.id; };
        std::wstring text;
        if (std::any_of(known.begin(), known.end(), same) || ReadStream(SnapShotsPath(), snapShot.id, text) != S_OK)
            continue;
        if (index.Add(snapShot, SnapShotIndex::Known::Refresh) != S_OK || to.WriteIndex(index) != S_OK ||
            to.Store(snapShot.id, text) != S_OK)
            return;
    }
    RemoveFiles();
}

bool SubscriptionArchive::AnyIn(const std::wstring& directory) {
    return !FilesLike(directory, L"config_*").empty() || !FilesLike(directory, L"snapshot_*").empty();
}

void SubscriptionArchive::RemoveFiles() const {
    const NamedLock lock = Lock();
    for (const wchar_t* kind : {L"config_", L"snapshot_"}) {
        for (const std::wstring& file : FilesLike(directory_, kind + id_ + L"*")) {
            SetFileAttributesW(file.c_str(), FILE_ATTRIBUTE_NORMAL);
            if (!DeleteFileW(file.c_str()))
                VORNA_LOG(LOG_WARNING, "An archive could not be deleted (error %lu) : %S", GetLastError(),
                          file.c_str());
        }
    }
}

} // namespace vorna
