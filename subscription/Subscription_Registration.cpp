// Registers, modifies and ends subscriptions of all event types with their sender, and undoes what failed.

#include "common/com/ProcessorFault.h"
#include "common/com/results.h"
#include "common/log/CatchAll.h"
#include "common/text/ErrorText.h"
#include "subscription/EventAccessSender.h"
#include "subscription/EventManagerSender.h"
#include "subscription/MaintenanceTimer.h"
#include "subscription/Subscription.h"
#include "subscription/TimerSender.h"

namespace vorna {

HRESULT Subscription::HandleSetDataforTimerEvent(SetDataOperation operation, CPWStringBuffer& errorText) {
    const ScopeTrace trace("Subscription::HandleSetDataforTimerEvent");
    TimerSender sender(info_.TimerEvent(), RecordedClientId());
    return HandleSetDataWith(sender, operation, errorText);
}

HRESULT Subscription::HandleSetDataforKROEvent(SetDataOperation operation, CPWStringBuffer& errorText) {
    const ScopeTrace trace("Subscription::HandleSetDataforKROEvent");
    EventManagerSender sender(info_.KROEvent(), RecordedClientId());
    return HandleSetDataWith(sender, operation, errorText);
}

HRESULT Subscription::HandleSetDataforXDMEvent(SetDataOperation operation, CPWStringBuffer& errorText) {
    const ScopeTrace trace("Subscription::HandleSetDataforXDMEvent");
    EventAccessSender sender(info_.XDMEvent(), service_, RecordedClientId());
    return HandleSetDataWith(sender, operation, errorText);
}

std::wstring Subscription::RecordedClientId() {
    std::wstring clientId;
    (void)persistance_.GetClientID(clientId);
    return clientId;
}

HRESULT Subscription::HandleSetDataWith(Sender& sender, SetDataOperation operation, CPWStringBuffer& errorText) {
    const auto work = [&] {
        switch (operation) {
        case SetDataOperation::Register:
            return Register(sender, errorText);
        case SetDataOperation::Modify:
            return Modify(sender, errorText);
        case SetDataOperation::Unregister:
            return Unregister(sender, errorText);
        }
        return E_INVALIDARG;
    };
    return CatchAll(FailWith(errorText, E_FAIL), work, sender.Texts().unspecified);
}

HRESULT Subscription::Register(Sender& sender, CPWStringBuffer& errorText) {
    const Sender::Wording& texts = sender.Texts();
    if (HRESULT created = sender.Create(errorText); created != S_OK)
        return created;

    // Only timer subscriptions capture a snapshot when they are registered.
    std::wstring data;
    const HRESULT gathered = info_.TimerEvent() ? GatherFirstData(data) : S_FALSE;

    VORNA_LOG(LOG_TRACE, "%s", texts.subscribing);
    NamedLock registration = RegistrationLock();
    if (!registration.Held()) {
        errorText = L"Another registration did not end in time";
        return E_FAIL;
    }
    if (HRESULT result = sender.Subscribe(record_.subscriptionId, errorText); result != S_OK)
        return result;

    if (!CreateBaseDir()) {
        registration.Unlock();
        (void)sender.Unsubscribe(record_.subscriptionId);
        errorText = L"Directory creation failed";
        VORNA_LOG(LOG_TRACE, "%s", texts.noDirectory);
        return E_FAIL;
    }

    std::wstring maintenanceId;
    const bool maintained = persistance_.GetMaintainanceID(maintenanceId) == S_OK;
    if (maintained || RegisterforMaintananceEvent(maintenanceId) != S_OK)
        maintenanceId.clear();

    record_.kind = RegistrationKind::New;
    if (HRESULT added = persistance_.AddSubscription(record_, sender.ClientId(), maintenanceId); added != S_OK) {
        VORNA_LOG(LOG_TRACE, "%s", texts.addRefused);
        errorText = texts.addFailed;
        VORNA_LOG(LOG_TRACE, "%S", texts.addFailed);
        registration.Unlock();
        (void)sender.Unsubscribe(record_.subscriptionId);
        RemoveBaseDir();
        // A maintenance timer that is not recorded could never be ended later; a recorded one may serve other
        // subscriptions.
        std::wstring recorded;
        if (!maintenanceId.empty() && persistance_.GetMaintainanceID(recorded) != S_OK)
            (void)MaintenanceTimer::End(sender.ClientId(), maintenanceId);
        else
            MaintenanceTimer::Drop(persistance_);
        return added;
    }
    registration.Unlock();

    if (!data.empty())
        (void)AddSnapShotToArchive(data);
    else if (gathered == S_OK)
        VORNA_LOG(LOG_TRACE, "Error - Aggregator's GetData returned S_OK, but output data was NULL");
    VORNA_LOG(
        LOG_TRACE,
        "Returning from the SetData of subscription with subscription ID :\"%S\" and Vorna ID :\"%S\" and ServiceObject :\"%S\"",
        record_.subscriptionId.c_str(), record_.vornaId.c_str(), record_.serviceXml.c_str());
    return S_OK;
}

HRESULT Subscription::GatherFirstData(std::wstring& data) {
    VORNA_LOG(LOG_TRACE,
              "Subscription::HandleSetDataforTimerEvent~~~Going to do GetData with Aggregator as it is timer event .");
    const DataSource& source = info_.TimerEvent()->source;
    const HRESULT gathered = GetDataFromAggregator(service_.get(), source.xpath, source.prefixes, data);
    if (FAILED(gathered))
        VORNA_LOG(LOG_TRACE, "Error - Aggregator's GetData returned failure");
    return gathered;
}

HRESULT Subscription::Modify(Sender& sender, CPWStringBuffer& errorText) {
    const Sender::Wording& texts = sender.Texts();
    if (HRESULT created = sender.Create(errorText); created != S_OK)
        return created;
    VORNA_LOG(LOG_TRACE, "%s", texts.modifying);
    if (persistance_.IsSubscriptionAged(record_.vornaId)) {
        VORNA_LOG(LOG_TRACE, "The subscription has already aged. Going to subscribe again");
        return Renew(sender, RegistrationKind::Renewal, errorText);
    }
    const HRESULT answer = sender.Modify(record_.subscriptionId);
    if (answer == S_OK) {
        record_.kind = RegistrationKind::Modification;
        const HRESULT stored = persistance_.AddSubscription(record_, sender.ClientId(), {});
        if (stored == S_OK)
            return S_OK;
        // The subscription may just have aged, which ends its registration; then it is registered again.
        if (!persistance_.IsSubscriptionAged(record_.vornaId)) {
            VORNA_LOG(LOG_TRACE, "%s", texts.storeRefused);
            errorText = texts.storeFailed;
            return stored;
        }
    } else if (!sender.SubscribesAgainAfter(answer)) {
        errorText = texts.modifyFailed;
        VORNA_LOG(LOG_TRACE, "%S (hr: %#x)", texts.modifyFailed, static_cast<unsigned>(answer));
        return FAILED(answer) ? answer : E_FAIL;
    }
    VORNA_LOG(LOG_TRACE, "Modification is failed.Subscribing Again");
    const HRESULT renewed = Renew(sender, RegistrationKind::Renewal, errorText);
    if (renewed == S_OK)
        VORNA_LOG(LOG_TRACE, "%s", texts.resubscribed);
    return renewed;
}

// Copies everything that was captured so far to the new archives.
HRESULT Subscription::CopyArchive(const SubscriptionArchive& from, const SubscriptionArchive& to) {
    const NamedLock lock = from.Lock();
    return lock.Held() ? from.CopyTo(to) : lock.Result();
}

// Replaces the recorded registration by a new one. The archives are named after the registration, so they are copied to
// the new name before the record changes.
HRESULT Subscription::Renew(Sender& sender, RegistrationKind kind, CPWStringBuffer& errorText) {
    const Sender::Wording& texts = sender.Texts();
    NamedLock registration = RegistrationLock();
    if (!registration.Held()) {
        errorText = L"Another registration did not end in time";
        return E_FAIL;
    }
    // The previous owner of the lock may have renewed the subscription as well; then its archives are the current ones.
    SubscriptionRecord current;
    if (HRESULT found = persistance_.GetSubscription(record_.clientCookie, current); found != S_OK) {
        errorText = found == RESULT_NO_SUBSCRIPTION ? L"The subscription was ended meanwhile" : texts.storeFailed;
        return found;
    }
    const std::wstring oldId = current.subscriptionId;
    std::wstring newId;
    if (HRESULT result = sender.Subscribe(newId, errorText); result != S_OK) {
        if (kind == RegistrationKind::Restoration)
            VORNA_LOG(LOG_TRACE, "Failed to Subscribe with event manager");
        return result;
    }
    const SubscriptionArchive oldArchive(record_.archiveDirectory, oldId);
    const SubscriptionArchive newArchive(record_.archiveDirectory, newId);
    HRESULT result = CopyArchive(oldArchive, newArchive);
    if (result == S_OK) {
        record_.kind = kind;
        record_.subscriptionId = newId;
        result = persistance_.AddSubscription(record_, sender.ClientId(), {});
    }
    registration.Unlock();
    if (result != S_OK) {
        errorText = texts.storeFailed;
        VORNA_LOG(LOG_TRACE, "%s",
                  kind == RegistrationKind::Restoration ? "Failed to add the subscription to the archive"
                                                        : texts.storeRefused);
        (void)sender.Unsubscribe(newId);
        SubscriptionRecord recorded;
        // The new archives are unused only if the record does not name them.
        if (persistance_.GetSubscription(newId, recorded) == RESULT_NO_SUBSCRIPTION)
            newArchive.RemoveFiles();
        return result;
    }
    // Usually the old registration no longer exists; if it does, nothing else would end it.
    (void)sender.Unsubscribe(oldId);
    oldArchive.MoveLateSnapShotsTo(newArchive);
    return S_OK;
}

HRESULT Subscription::Unregister(Sender& sender, CPWStringBuffer& errorText) {
    const Sender::Wording& texts = sender.Texts();
    VORNA_LOG(LOG_TRACE, "%s", texts.unsubscribing);
    VORNA_LOG(LOG_TRACE, "Unregistering the subscription id :%S", record_.subscriptionId.c_str());
    HRESULT answer = sender.Create(errorText);
    if (answer == S_OK)
        answer = sender.Unsubscribe(record_.subscriptionId);
    // A registration that no longer exists counts as ended.
    if (answer != S_OK && !Sender::IsGone(answer)) {
        if (texts.unsubscribeRefused)
            VORNA_LOG(LOG_TRACE, "%s", texts.unsubscribeRefused);
        VORNA_LOG(LOG_TRACE, "%s (hr: %#x)", texts.unsubscribeFailed, static_cast<unsigned>(answer));
        (void)persistance_.DeleteSubscription(record_.subscriptionId);
        VORNA_LOG(LOG_TRACE, "%s", texts.invalidated);
        errorText = texts.invalidatedText;
        return FAILED(answer) ? answer : E_FAIL;
    }
    VORNA_LOG(LOG_TRACE, "%s", texts.unsubscribed);
    return DeleteRecordAndArchives(errorText);
}

HRESULT Subscription::DeleteRecordAndArchives(CPWStringBuffer& errorText) {
    if (HRESULT deleted = persistance_.DeleteSubscription(record_.subscriptionId); deleted != S_OK) {
        errorText = L"The subscription could not be deleted from the Persist file";
        return deleted;
    }
    VORNA_LOG(LOG_TRACE, "Subscription Deleted from Persist file successfully");
    RemoveBaseDir();
    return S_OK;
}

bool Subscription::IsBeyondReading(HRESULT result, const SubscriptionRecord& record) {
    if (record.subscriptionId.empty() || record.archiveDirectory.empty())
        return false;
    return result == HRESULT_FROM_WIN32(ERROR_FILE_CORRUPT) || result == RESULT_XML_MALFORMED ||
           !record.Archive().Exists();
}

HRESULT Subscription::EndUnread(CPWStringBuffer& errorText) {
    VORNA_LOG(LOG_WARNING, "The subscription %S is ended without having been read : its archive is damaged",
              record_.subscriptionId.c_str());
    const HRESULT result = DeleteRecordAndArchives(errorText);
    if (result == S_OK)
        MaintenanceTimer::Drop(persistance_);
    return result;
}

} // namespace vorna
