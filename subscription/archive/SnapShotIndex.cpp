#include "subscription/archive/SnapShotIndex.h"

#include "common/com/results.h"
#include "common/log/Logging.h"

#include <map>

namespace vorna {

namespace {

std::wstring EntryPath(std::wstring_view id) {
    return L"/SnapShots/SnapShot [@Id=\"" + std::wstring(id) + L"\"]";
}

HRESULT Replace(XmlAccessor& accessor, const std::wstring& path, const std::wstring& markup) {
    if (accessor.Set(path, markup, XmlChange::Replace) == S_OK)
        return S_OK;
    VORNA_LOG(LOG_TRACE, "Replacing : %S with %SFailed", path.c_str(), markup.c_str());
    return E_FAIL;
}

// failure: a format string that takes the text.
HRESULT Load(XmlAccessor& accessor, const std::wstring& text, const char* failure) {
    if (HRESULT result = accessor.Create(); result != S_OK)
        return result;
    if (accessor.Load(text) == S_OK)
        return S_OK;
    VORNA_LOG(LOG_TRACE, failure, text.c_str());
    return RESULT_XML_MALFORMED;
}

constexpr char LOAD_FAILED[] = "Load XML of \"%S failed";

} // namespace

HRESULT SnapShotIndex::Add(const SnapShot& snapShot, Known known) {
    std::wstring markup;
    snapShot.ToXML(markup);
    if (text_.empty()) {
        text_ = L"<SnapShots>" + markup + L"</SnapShots>";
        return S_OK;
    }
    XmlAccessor accessor;
    if (HRESULT result = Load(accessor, text_, LOAD_FAILED); result != S_OK)
        return result;
    const std::wstring entry = EntryPath(snapShot.id);
    std::wstring found;
    if (accessor.QueryMarkup(entry + L"/AccessTime", found) == S_OK) {
        if (known == Known::Refuse)
            return HRESULT_FROM_WIN32(ERROR_ALREADY_EXISTS);
        if (Replace(accessor, entry + L"/AccessTime",
                    L"<AccessTime>" + FormatDateTime(snapShot.accessTime) + L"</AccessTime>") != S_OK ||
            Replace(accessor, entry + L"/AlreadyRead",
                    snapShot.alreadyRead == 1 ? L"<AlreadyRead>TRUE</AlreadyRead>"
                                              : L"<AlreadyRead>FALSE</AlreadyRead>") != S_OK)
            return E_FAIL;
    } else if (accessor.Set(L"/SnapShots", markup, XmlChange::Append) != S_OK) {
        VORNA_LOG(LOG_TRACE, "XMLSet failed!! Appending : %S at /SnapShotsFailed", markup.c_str());
        return E_FAIL;
    }
    if (accessor.QueryMarkup(L"/SnapShots", text_) == S_OK)
        return S_OK;
    VORNA_LOG(LOG_TRACE, "Failed to get the data from updated snapshotinfo XML");
    return E_FAIL;
}

HRESULT SnapShotIndex::Refresh(std::span<const SnapShot> snapShots) {
    XmlAccessor accessor;
    if (HRESULT result = Load(accessor, text_, LOAD_FAILED); result != S_OK)
        return result;
    std::vector<std::wstring> entries, ids;
    if (accessor.QueryMarkups(L"/SnapShots/SnapShot", entries) != S_OK ||
        accessor.QueryTexts(L"/SnapShots/SnapShot/@Id", ids) != S_OK)
        return E_FAIL;
    // If an entry has no Id, entries and Ids cannot be matched.
    if (ids.size() != entries.size())
        return E_FAIL;
    std::map<std::wstring_view, const SnapShot*> fresh;
    for (const SnapShot& snapShot : snapShots)
        fresh.emplace(snapShot.id, &snapShot);
    text_ = L"<SnapShots>";
    std::wstring markup;
    for (size_t i = 0; i < ids.size(); ++i) {
        if (auto found = fresh.find(ids[i]); found != fresh.end()) {
            found->second->ToXML(markup);
            text_ += markup;
        } else {
            text_ += entries[i];
        }
    }
    text_ += L"</SnapShots>";
    return S_OK;
}

HRESULT SnapShotIndex::Remove(std::wstring_view id) {
    XmlAccessor accessor;
    if (HRESULT result = Load(accessor, text_, "Failed to Load: %S"); result != S_OK)
        return result;
    if (Replace(accessor, EntryPath(id), L"") != S_OK)
        return E_FAIL;
    if (accessor.QueryMarkup(L"/*", text_) == S_OK)
        return S_OK;
    VORNA_LOG(LOG_TRACE, "Failed to get the updated SnapShotInfo data from memory");
    return E_FAIL;
}

HRESULT SnapShotIndex::Read(std::vector<SnapShot>& snapShots) const {
    snapShots.clear();
    // No capture yet.
    if (text_.empty())
        return S_OK;
    XmlAccessor accessor;
    if (HRESULT result = Load(accessor, text_, LOAD_FAILED); result != S_OK)
        return result;
    std::vector<std::wstring> entries, ids, times, flags;
    if (accessor.QueryMarkups(L"/SnapShots/SnapShot", entries) != S_OK) {
        VORNA_LOG(LOG_TRACE, "Failed to get /SnapShots/SnapShot from the SnapShotInfo data");
        return E_FAIL;
    }
    // One query reads a value of all entries; querying each entry separately takes ten times as long.
    (void)accessor.QueryTexts(L"/SnapShots/SnapShot/@Id", ids);
    (void)accessor.QueryTexts(L"/SnapShots/SnapShot/AccessTime", times);
    (void)accessor.QueryTexts(L"/SnapShots/SnapShot/AlreadyRead", flags);
    // If an entry lacks a value, each entry is read separately.
    const bool complete =
        ids.size() == entries.size() && times.size() == entries.size() && flags.size() == entries.size();
    for (size_t i = 0; i < entries.size(); ++i) {
        if (complete)
            snapShots.emplace_back(ids[i], times[i], flags[i]);
        else
            snapShots.emplace_back(entries[i], accessor);
    }
    return S_OK;
}

HRESULT SnapShotIndex::FindOldest(std::wstring_view stream, std::wstring& id) const {
    XmlAccessor accessor;
    if (HRESULT result = accessor.Create(); result != S_OK)
        return result;
    if (accessor.Load(text_) != S_OK) {
        VORNA_LOG(LOG_TRACE, "Load XML of \"%S\" data failed", std::wstring(stream).c_str());
        return RESULT_XML_MALFORMED;
    }
    std::vector<std::wstring> ids;
    if (accessor.QueryTexts(L"/SnapShots/SnapShot/@Id", ids) != S_OK || ids.empty()) {
        VORNA_LOG(LOG_TRACE, "Failed to get /SnapShots/SnapShot/@Id from the Snapshot xml");
        return E_FAIL;
    }
    id = ids.front();
    return S_OK;
}

} // namespace vorna
