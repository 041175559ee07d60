// From a callback to a stored snapshot.

#include "common/com/bstr.h"
#include "common/com/results.h"
#include "common/log/CatchAll.h"
#include "common/services/ServiceObjects.h"
#include "common/services/platformservices.h"
#include "subscription/Subscription.h"

#include <algorithm>

namespace vorna {

namespace {

constexpr int MAX_WAITS_FOR_NEXT_SECOND = 10;

} // namespace

HRESULT Subscription::HandleCallBack(std::wstring_view callbackXml) {
    return CatchAll("Subscription::HandleCallBack", E_FAIL, [&]() -> HRESULT {
        VORNA_LOG(
            LOG_TRACE,
            "In the CallBack of subscription with subscription ID :\"%S\" and Vorna ID :\"%S\" and ServiceObject :\"%S\"",
            record_.subscriptionId.c_str(), record_.vornaId.c_str(), record_.serviceXml.c_str());
        if (info_.Status() != S_OK) {
            VORNA_LOG(LOG_TRACE, "No subscriptionInfo");
            return E_FAIL;
        }
        if (const KROEventInfo* event = info_.KROEvent()) {
            std::wstring endDate;
            if (persistance_.GetEndDateForSubscription(record_.vornaId, endDate) == S_OK && HasReachedEnd(endDate)) {
                const HRESULT aged = UnregisterAged(endDate);
                // The subscription has just been renewed, so the callback's data is still captured.
                if (aged != S_FALSE)
                    return aged;
            }
            return Capture(event->source, callbackXml);
        }
        if (const XDMEventInfo* event = info_.XDMEvent())
            return Capture(event->source, callbackXml);
        if (const TimerInfo* timer = info_.TimerEvent())
            return HandleCallbackforXDMData(timer->source.xpath, timer->source.prefixes);
        VORNA_LOG(LOG_TRACE, "Invalid subscriptionInfo");
        return E_FAIL;
    });
}

HRESULT Subscription::Capture(const DataSource& source, std::wstring_view callbackXml) {
    return source.kind == DataSourceKind::DataModel
               ? HandleCallbackforXDMData(source.xpath, source.prefixes)
               : HandleCallbackforEventPayloadData(callbackXml, source.xpath, source.transformFile);
}

// data is empty unless the result is S_OK, and may be empty even then.
HRESULT Subscription::GetDataFromAggregator(IUnknown* service, std::wstring_view xpath, std::wstring_view argument,
                                            std::wstring& data) {
    data.clear();
    com_ptr<IAggregator> aggregator;
    HRESULT result = PlatformServices::CreateInstance(PROGID_AGGREGATOR, nullptr, aggregator);
    if (result != S_OK) {
        VORNA_LOG(LOG_TRACE, "Create Instance of Aggregator failed");
        return FAILED(result) ? result : E_FAIL;
    }
    VORNA_LOG(LOG_TRACE, "Calling aggregator GetData with XPath:%S", std::wstring(xpath).c_str());
    bstr answer, second;
    result = aggregator->GetData(service, bstr(xpath).get(), bstr(argument).get(), answer.put(), second.put());
    if (result == S_OK)
        data = answer.str();
    else
        VORNA_LOG(LOG_TRACE, "The aggregator answered %#x : %S", static_cast<unsigned>(result), second.str().c_str());
    return result;
}

HRESULT Subscription::HandleCallbackforXDMData(std::wstring_view xpath, std::wstring_view argument) {
    const ScopeTrace trace("Subscription::HandleCallbackforXDMData");
    com_ptr<IUnknown> service;
    CPWStringBuffer text;
    if (HRESULT result = VORNAUTILITY::GetServiceObject(record_.serviceXml, service, text); result != S_OK) {
        VORNA_LOG(LOG_TRACE, "Failed to Create the ServiceObject. Returning Fail from CallbackforXMLData");
        return result;
    }
    std::wstring data;
    if (GetDataFromAggregator(service.get(), xpath, argument, data) != S_OK || data.empty()) {
        VORNA_LOG(LOG_TRACE, "Aggregator GetData failed");
        return E_FAIL;
    }
    const HRESULT result = AddSnapShotToArchive(data);
    if (result != S_OK)
        VORNA_LOG(LOG_TRACE, "Adding snapshot data to archive failed");
    return result;
}

HRESULT Subscription::AddSnapShotToArchive(std::wstring_view data) {
    return CatchAll("Subscription::AddSnapShotToArchive", E_FAIL, [&]() -> HRESULT {
        SnapShot snapShot;
        if (HRESULT result = RecordCapture(snapShot); result != S_OK)
            return result;
        const HRESULT result = StoreSnapShot(snapShot, data);
        if (DeleteTheAgedFilesFromArchive() == 0)
            VORNA_LOG(LOG_TRACE, "Failed to delete aged files from archive");
        if (CheckForArchiveOverflow() != S_OK)
            VORNA_LOG(LOG_TRACE, "Failed to check the archiveOverflow");
        return result;
    });
}

// Snapshots are named after the second of their capture, so another capture in the same second would replace the first
// one: it waits for the next second. If several seconds in a row are taken (because the clock was set back), the newer
// capture replaces the older one.
HRESULT Subscription::RecordCapture(SnapShot& snapShot) {
    using Known = SnapShotIndex::Known;
    for (int waits = 0;; ++waits) {
        snapShot = SnapShot(LocalNow());
        const HRESULT result = persistance_.AddSnapShot(
            record_.Archive(), snapShot, waits < MAX_WAITS_FOR_NEXT_SECOND ? Known::Refuse : Known::Refresh);
        if (result != HRESULT_FROM_WIN32(ERROR_ALREADY_EXISTS))
            return result;
        VORNA_LOG(LOG_TRACE, "There is a snapshot %S already. Waiting for the next second", snapShot.id.c_str());
        Sleep(1001 - snapShot.accessTime.wMilliseconds);
    }
}

// The snapshot is already recorded. Stores its data under the archive lock, and removes the record if that fails.
HRESULT Subscription::StoreSnapShot(const SnapShot& snapShot, std::wstring_view data) {
    // The lock is recursive: the persistence object acquires it again for the rollback.
    const SubscriptionArchive archive = record_.Archive();
    const NamedLock lock = archive.Lock();
    if (!lock.Held())
        return lock.Result();
    // The subscription may have been ended since the snapshot was recorded. Storing would create an archive that is
    // never removed.
    if (!archive.Exists())
        return RESULT_NO_SUBSCRIPTION;
    const HRESULT result = archive.Store(snapShot.id, data);
    const bool known = std::any_of(record_.snapShots.begin(), record_.snapShots.end(),
                                   [&](const SnapShot& other) { return other.id == snapShot.id; });
    if (result == S_OK) {
        AddToSnapShotList(snapShot);
        return S_OK;
    }
    VORNA_LOG(LOG_TRACE, "Going to delete the subscription from snapshot persist");
    // An earlier capture of the same second keeps its record, because its stream still exists.
    if (!known && persistance_.DeleteSnapShot(archive, snapShot.id) != 1)
        VORNA_LOG(LOG_TRACE, "Could not delete snapshot information from persist file");
    return result;
}

} // namespace vorna
