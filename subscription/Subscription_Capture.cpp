// From a callback to a stored snapshot.

#include "common/com/bstr.h"
#include "common/com/results.h"
#include "common/log/CatchAll.h"
#include "common/services/ServiceObjects.h"
#include "common/services/platformservices.h"
#include "subscription/Subscription.h"

namespace vorna {

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

HRESULT Subscription::CreateAggregator(com_ptr<IAggregator>& aggregator) {
    const HRESULT result = PlatformServices::CreateInstance(PROGID_AGGREGATOR, nullptr, aggregator);
    if (result == S_OK)
        return S_OK;
    VORNA_LOG(LOG_TRACE, "Create Instance of Aggregator failed");
    return FAILED(result) ? result : E_FAIL;
}

// data is empty unless the result is S_OK, and may be empty even then.
HRESULT Subscription::GetDataFrom(IAggregator& aggregator, IUnknown* service, std::wstring_view xpath,
                                  std::wstring_view argument, std::wstring& data) {
    data.clear();
    VORNA_LOG(LOG_TRACE, "Calling aggregator GetData with XPath:%S", std::wstring(xpath).c_str());
    bstr answer, second;
    const HRESULT result =
        aggregator.GetData(service, bstr(xpath).get(), bstr(argument).get(), answer.put(), second.put());
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
    com_ptr<IAggregator> aggregator;
    if (HRESULT created = CreateAggregator(aggregator); created != S_OK)
        return created;
    std::wstring data;
    if (GetDataFrom(*aggregator.get(), service.get(), xpath, argument, data) != S_OK || data.empty()) {
        VORNA_LOG(LOG_TRACE, "Aggregator GetData failed");
        return E_FAIL;
    }
    const HRESULT result = AddSnapShotToArchive(data);
    if (result != S_OK)
        VORNA_LOG(LOG_TRACE, "Adding snapshot data to archive failed");
    return result;
}

HRESULT Subscription::AddSnapShotToArchive(std::wstring_view data, SnapShotIndex::Placement placement) {
    return CatchAll("Subscription::AddSnapShotToArchive", E_FAIL, [&]() -> HRESULT {
        HRESULT result = S_OK;
        {
            const SubscriptionArchive archive = record_.Archive();
            // Held for both the entry and the stream, so that no other thread sees one without the other.
            const NamedLock lock = archive.Lock();
            if (!lock.Held())
                return lock.Result();
            // After the end of the subscription, storing would create an archive that is never removed.
            if (archive.IsGone())
                return RESULT_NO_SUBSCRIPTION;
            SnapShot snapShot(LocalNow());
            bool added = false;
            result = persistance_.AddSnapShot(archive, snapShot, placement, &added);
            if (result != S_OK)
                return result;
            result = StoreSnapShot(archive, snapShot, added, data);
        }
        if (DeleteTheAgedFilesFromArchive() == 0)
            VORNA_LOG(LOG_TRACE, "Failed to delete aged files from archive");
        // One check removes one snapshot. More are due only if an earlier capture was interrupted before its check.
        for (bool overflows = true; overflows;) {
            if (CheckForArchiveOverflow(overflows) == S_OK)
                continue;
            VORNA_LOG(LOG_TRACE, "Failed to check the archiveOverflow");
            break;
        }
        return result;
    });
}

// added: whether the entry is new; then a failure removes it again.
HRESULT Subscription::StoreSnapShot(const SubscriptionArchive& archive, const SnapShot& snapShot, bool added,
                                    std::wstring_view data) {
    const HRESULT result = archive.Store(snapShot.id, data);
    if (result == S_OK) {
        if (added)
            AddToSnapShotList(snapShot);
        return S_OK;
    }
    VORNA_LOG(LOG_TRACE, "Going to delete the subscription from snapshot persist");
    // An earlier capture of the same second keeps its entry, because its stream still exists.
    if (added && persistance_.DeleteSnapShot(archive, snapShot.id) != 1)
        VORNA_LOG(LOG_TRACE, "Could not delete snapshot information from persist file");
    return result;
}

} // namespace vorna
