// The operations of SubscriptionPersistance on a subscription's snapshot index.

#include "common/log/Logging.h"
#include "persist/PersistFrame.h"
#include "persist/SubscriptionPersistance.h"

#include <map>

namespace vorna {

namespace {

std::wstring EntryPath(std::wstring_view id) {
    return L"/SnapShots/SnapShot [@Id=\"" + std::wstring(id) + L"\"]";
}

HRESULT Replace(XmlAccessor& accessor, const std::wstring& path, const std::wstring& markup) {
    if (accessor.Set(path, markup, XmlChange::Replace) == S_OK)
        return S_OK;
    LogTraceText(L"Replacing : " + path + L" with " + markup + L"Failed");
    return E_FAIL;
}

HRESULT LoadIndex(XmlAccessor& accessor, const std::wstring& index, const char* failure, const char* failureEnd) {
    if (HRESULT result = accessor.Create(); result != S_OK)
        return result;
    if (accessor.Load(index) == S_OK)
        return S_OK;
    VORNA_LOG(LOG_TRACE, "%s%S%s", failure, index.c_str(), failureEnd);
    return RESULT_XML_MALFORMED;
}

HRESULT AddToIndex(std::wstring& index, const SnapShot& snapShot, SubscriptionPersistance::Entry wanted) {
    std::wstring markup;
    snapShot.ToXML(markup);
    if (index.empty()) {
        index = L"<SnapShots>" + markup + L"</SnapShots>";
        return S_OK;
    }
    XmlAccessor accessor;
    if (HRESULT result = LoadIndex(accessor, index, "Load XML of \"", " failed"); result != S_OK)
        return result;
    const std::wstring entry = EntryPath(snapShot.id);
    std::wstring found;
    if (accessor.QueryMarkup(entry + L"/AccessTime", found) == S_OK) {
        if (wanted == SubscriptionPersistance::Entry::New)
            return HRESULT_FROM_WIN32(ERROR_ALREADY_EXISTS);
        if (Replace(accessor, entry + L"/AccessTime",
                    L"<AccessTime>" + FormatDateTime(snapShot.accessTime) + L"</AccessTime>") != S_OK ||
            Replace(accessor, entry + L"/AlreadyRead",
                    snapShot.alreadyRead == 1 ? L"<AlreadyRead>TRUE</AlreadyRead>"
                                              : L"<AlreadyRead>FALSE</AlreadyRead>") != S_OK)
            return E_FAIL;
    } else if (accessor.Set(L"/SnapShots", markup, XmlChange::Append) != S_OK) {
        LogTraceText(L"XMLSet failed!! Appending : " + markup + L" at /SnapShotsFailed");
        return E_FAIL;
    }
    if (accessor.QueryMarkup(L"/SnapShots", index) != S_OK) {
        VORNA_LOG(LOG_TRACE, "Failed to get the data from updated snapshotinfo XML");
        return E_FAIL;
    }
    return S_OK;
}

// All entries, those of snapShots from their records, the others as they stand. One pass, however many there are.
HRESULT RefreshIndex(std::wstring& index, std::span<const SnapShot> snapShots) {
    if (index.empty())
        return S_FALSE;
    XmlAccessor accessor;
    if (HRESULT result = LoadIndex(accessor, index, "Load XML of \"", " failed"); result != S_OK)
        return result;
    std::wstring delimiter, ids, entries;
    if (accessor.GetDelimiter(delimiter) != S_OK) {
        VORNA_LOG(LOG_TRACE, "get_delimiter() failed");
        return E_FAIL;
    }
    if (FAILED(accessor.QueryText(L"/SnapShots/SnapShot/@Id", ids)) ||
        FAILED(accessor.QueryMarkup(L"/SnapShots/SnapShot", entries)))
        return E_FAIL;
    const auto idList = SplitAtDelimiter(ids, delimiter);
    const auto entryList = SplitAtDelimiter(entries, delimiter);
    // An entry without an Id would shift the rest against each other.
    if (idList.size() != entryList.size())
        return E_FAIL;
    std::map<std::wstring_view, const SnapShot*> fresh;
    for (const SnapShot& snapShot : snapShots)
        fresh.emplace(snapShot.id, &snapShot);
    index = L"<SnapShots>";
    std::wstring markup;
    for (size_t i = 0; i < idList.size(); ++i) {
        if (auto found = fresh.find(idList[i]); found != fresh.end()) {
            found->second->ToXML(markup);
            index += markup;
        } else {
            index += entryList[i];
        }
    }
    index += L"</SnapShots>";
    return S_OK;
}

} // namespace

HRESULT SubscriptionPersistance::AddSnapShot(std::wstring_view directory, std::wstring_view subscriptionId,
                                             const SnapShot& snapShot, Entry wanted) {
    static constexpr Texts TEXTS{"SubscriptionPersistance::AddSnapShot", "", ""};
    return WithIndex(TEXTS, directory, subscriptionId, [&](std::wstring& index) -> HRESULT {
        // A callback may come in when its subscription has just been ended: it must not bring archives back.
        std::wstring subscription;
        if (index.empty() && IsMissing(ReadStream(ConfigArchivePath(directory, subscriptionId),
                                                  SubscriptionStream(subscriptionId), subscription)))
            return RESULT_NO_SUBSCRIPTION;
        return AddToIndex(index, snapShot, wanted);
    });
}

HRESULT SubscriptionPersistance::RefreshSnapShots(std::wstring_view directory, std::wstring_view subscriptionId,
                                                  std::span<const SnapShot> snapShots) {
    static constexpr Texts TEXTS{"SubscriptionPersistance::RefreshSnapShots", "", ""};
    return WithIndex(TEXTS, directory, subscriptionId,
                     [&](std::wstring& index) { return RefreshIndex(index, snapShots); });
}

int SubscriptionPersistance::DeleteSnapShot(std::wstring_view directory, std::wstring_view subscriptionId,
                                            std::wstring_view snapShotId) {
    static constexpr Texts TEXTS{"SubscriptionPersistance::DeleteSnapShot", "", ""};
    HRESULT result = WithIndex(TEXTS, directory, subscriptionId, [&](std::wstring& index) -> HRESULT {
        XmlAccessor accessor;
        if (HRESULT loaded = LoadIndex(accessor, index, "Failed to Load: ", ""); loaded != S_OK)
            return loaded;
        if (Replace(accessor, EntryPath(snapShotId), L"") != S_OK)
            return E_FAIL;
        if (accessor.QueryMarkup(L"/*", index) != S_OK) {
            VORNA_LOG(LOG_TRACE, "Failed to get the updated SnapShotInfo data from memory");
            return E_FAIL;
        }
        return S_OK;
    });
    return result == S_OK ? 1 : 0;
}

} // namespace vorna
