#include "subscription/archive/SnapShotIndex.h"

#include "common/com/results.h"
#include "common/log/Logging.h"

#include <algorithm>
#include <map>
#include <set>

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

HRESULT Append(XmlAccessor& accessor, const SnapShot& snapShot) {
    std::wstring markup;
    snapShot.ToXML(markup);
    if (accessor.Set(L"/SnapShots", markup, XmlChange::Append) == S_OK)
        return S_OK;
    VORNA_LOG(LOG_TRACE, "XMLSet failed!! Appending : %S at /SnapShotsFailed", markup.c_str());
    return E_FAIL;
}

HRESULT Update(XmlAccessor& accessor, const SnapShot& snapShot) {
    const std::wstring entry = EntryPath(snapShot.id);
    const HRESULT result = Replace(accessor, entry + L"/AccessTime",
                                   L"<AccessTime>" + FormatDateTime(snapShot.accessTime) + L"</AccessTime>");
    return result != S_OK ? result
                          : Replace(accessor, entry + L"/AlreadyRead",
                                    snapShot.alreadyRead == 1 ? L"<AlreadyRead>TRUE</AlreadyRead>"
                                                              : L"<AlreadyRead>FALSE</AlreadyRead>");
}

// Gives the snapshot the Id of the first later second without an entry. S_FALSE: there is one.
HRESULT MoveToFreeSecond(XmlAccessor& accessor, SnapShot& snapShot) {
    std::vector<std::wstring> ids;
    if (HRESULT result = accessor.QueryTexts(L"/SnapShots/SnapShot/@Id", ids); result != S_OK)
        return result;
    SYSTEMTIME second = snapShot.accessTime;
    for (int ahead = 0; ahead < SnapShotIndex::FURTHEST_SECOND; ++ahead) {
        second = AddDuration(second, Duration{.seconds = 1});
        snapShot.id = SnapShot::IdOf(second);
        if (std::find(ids.begin(), ids.end(), snapShot.id) == ids.end())
            return S_FALSE;
    }
    VORNA_LOG(LOG_ERROR, "There is a snapshot for every second up to %S. The event is refused", snapShot.id.c_str());
    return HRESULT_FROM_WIN32(ERROR_BUSY);
}

constexpr char LOAD_FAILED[] = "Load XML of \"%S failed";

} // namespace

HRESULT SnapShotIndex::Add(SnapShot& snapShot, Placement placement, bool& added) {
    added = true;
    std::wstring markup, found;
    if (text_.empty()) {
        snapShot.ToXML(markup);
        text_ = L"<SnapShots>" + markup + L"</SnapShots>";
        return S_OK;
    }
    XmlAccessor accessor;
    if (HRESULT result = Load(accessor, text_, LOAD_FAILED); result != S_OK)
        return result;
    HRESULT known = accessor.QueryMarkup(EntryPath(snapShot.id) + L"/AccessTime", found);
    if (known == S_OK && placement == Placement::FreeSecond)
        known = MoveToFreeSecond(accessor, snapShot);
    if (FAILED(known))
        return known;
    added = known != S_OK;
    const HRESULT changed = added ? Append(accessor, snapShot) : Update(accessor, snapShot);
    if (changed != S_OK)
        return changed;
    if (accessor.QueryMarkup(L"/SnapShots", text_) == S_OK)
        return S_OK;
    VORNA_LOG(LOG_TRACE, "Failed to get the data from updated snapshotinfo XML");
    return E_FAIL;
}

// Composes the text anew. change gets the Id and the markup of each entry and may change the markup; an empty markup
// removes the entry.
template <typename Change>
HRESULT SnapShotIndex::Rewrite(Change change) {
    XmlAccessor accessor;
    if (HRESULT result = Load(accessor, text_, LOAD_FAILED); result != S_OK)
        return result;
    std::vector<std::wstring> entries, ids;
    if (accessor.QueryMarkups(L"/SnapShots/SnapShot", entries) != S_OK ||
        accessor.QueryTexts(L"/SnapShots/SnapShot/@Id", ids) != S_OK)
        return E_FAIL;
    text_ = L"<SnapShots>";
    for (size_t i = 0; i < entries.size(); ++i) {
        // If the numbers of Ids and entries differ, each entry is read separately.
        change(ids.size() == entries.size() ? ids[i] : SnapShot(entries[i], accessor).id, entries[i]);
        text_ += entries[i];
    }
    text_ += L"</SnapShots>";
    return S_OK;
}

HRESULT SnapShotIndex::Refresh(std::span<const SnapShot> snapShots) {
    std::map<std::wstring_view, const SnapShot*> fresh;
    for (const SnapShot& snapShot : snapShots)
        fresh.emplace(snapShot.id, &snapShot);
    return Rewrite([&](const std::wstring& id, std::wstring& markup) {
        if (const auto found = fresh.find(id); found != fresh.end())
            found->second->ToXML(markup);
    });
}

HRESULT SnapShotIndex::Remove(std::span<const std::wstring> ids) {
    const std::set<std::wstring_view> gone(ids.begin(), ids.end());
    return Rewrite([&](const std::wstring& id, std::wstring& markup) {
        if (gone.contains(id))
            markup.clear();
    });
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

HRESULT SnapShotIndex::ReadIds(std::vector<std::wstring>& ids) const {
    ids.clear();
    if (text_.empty())
        return S_OK;
    XmlAccessor accessor;
    const HRESULT result = Load(accessor, text_, LOAD_FAILED);
    return result == S_OK ? accessor.QueryTexts(L"/SnapShots/SnapShot/@Id", ids) : result;
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
