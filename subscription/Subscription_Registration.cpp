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

namespace {

constexpr wchar_t LOCKED[] = L"Another registration did not end in time";
constexpr wchar_t ENDED[] = L"The subscription was ended meanwhile";

} // namespace

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
    NamedLock registration = RegistrationLock(record_.clientCookie);
    if (!registration.Held()) {
        errorText = LOCKED;
        return E_FAIL;
    }
    // Another client may have registered the same archive since the handler looked.
    std::wstring recorded;
    if (HRESULT found = persistance_.GetSubscriptionID(record_.clientCookie, recorded);
        found != RESULT_NO_SUBSCRIPTION) {
        errorText = texts.addFailed;
        return found == S_OK ? HRESULT_FROM_WIN32(ERROR_ALREADY_EXISTS) : found;
    }
    std::wstring id, maintenanceId;
    HRESULT result = SubscribeAnew(sender, {}, id, errorText);
    if (result != S_OK) {
        registration.Unlock();
        if (!id.empty())
            (void)sender.Unsubscribe(id);
        return result;
    }
    record_.subscriptionId = id;
    result = MakeRecord(sender, maintenanceId, errorText);
    registration.Unlock();
    if (result != S_OK) {
        UndoRegistration(sender, maintenanceId);
        return result;
    }

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

// Subscribes, and refuses an ID that already has an archive, except oldId: a component that has lost its registrations
// may assign the same ID again. After a failure, id is the registration that the caller must end, or empty.
HRESULT Subscription::SubscribeAnew(Sender& sender, std::wstring_view oldId, std::wstring& id,
                                    CPWStringBuffer& errorText) {
    HRESULT result = sender.Subscribe(id, errorText);
    if (result != S_OK || id == oldId)
        return result;
    std::wstring other;
    result = persistance_.GetSubscriptionID(id, other);
    if (result == RESULT_NO_SUBSCRIPTION && SubscriptionArchive(record_.archiveDirectory, id).IsGone())
        return S_OK;
    errorText = sender.Texts().subscribeFailed;
    VORNA_LOG(LOG_ERROR, "The subscription ID is that of another archive : \"%S\"", id.c_str());
    return FAILED(result) && result != RESULT_NO_SUBSCRIPTION ? result : E_UNEXPECTED;
}

// Creates the folder, the maintenance timer and the record of a new registration. maintenanceId: the maintenance timer
// that was registered; empty if there was one already.
HRESULT Subscription::MakeRecord(Sender& sender, std::wstring& maintenanceId, CPWStringBuffer& errorText) {
    const Sender::Wording& texts = sender.Texts();
    const NamedLock folders = FolderLock();
    if (!folders.Held()) {
        errorText = LOCKED;
        return E_FAIL;
    }
    if (!CreateBaseDir()) {
        errorText = L"Directory creation failed";
        VORNA_LOG(LOG_TRACE, "%s", texts.noDirectory);
        return E_FAIL;
    }
    MaintenanceTimer::Ensure(persistance_, maintenanceId);
    record_.kind = RegistrationKind::New;
    const HRESULT added = persistance_.AddSubscription(record_, sender.ClientId(), maintenanceId);
    if (added == S_OK)
        return S_OK;
    VORNA_LOG(LOG_TRACE, "%s", texts.addRefused);
    errorText = texts.addFailed;
    VORNA_LOG(LOG_TRACE, "%S", texts.addFailed);
    return added;
}

// Undoes the steps of a failed registration.
void Subscription::UndoRegistration(Sender& sender, std::wstring_view maintenanceId) {
    (void)sender.Unsubscribe(record_.subscriptionId);
    RemoveBaseDir();
    // A maintenance timer that is not recorded could never be ended later; a recorded one may serve other
    // subscriptions.
    std::wstring recorded;
    if (!maintenanceId.empty() && SUCCEEDED(persistance_.FindMaintainanceID(recorded)) && recorded != maintenanceId)
        (void)MaintenanceTimer::End(sender.ClientId(), maintenanceId);
    else
        MaintenanceTimer::Drop(persistance_);
}

HRESULT Subscription::GatherFirstData(std::wstring& data) {
    VORNA_LOG(LOG_TRACE,
              "Subscription::HandleSetDataforTimerEvent~~~Going to do GetData with Aggregator as it is timer event .");
    const DataSource& source = info_.TimerEvent()->source;
    com_ptr<IAggregator> aggregator;
    HRESULT gathered = CreateAggregator(aggregator);
    if (gathered != S_OK)
        return gathered;
    gathered = GetDataFrom(*aggregator.get(), service_.get(), source.xpath, source.prefixes, data);
    if (FAILED(gathered))
        VORNA_LOG(LOG_TRACE, "Error - Aggregator's GetData returned failure");
    return gathered;
}

HRESULT Subscription::Modify(Sender& sender, CPWStringBuffer& errorText) {
    const Sender::Wording& texts = sender.Texts();
    if (HRESULT created = sender.Create(errorText); created != S_OK)
        return created;
    VORNA_LOG(LOG_TRACE, "%s", texts.modifying);
    HRESULT answer = S_OK;
    // Repeated with the new ID if another client renewed the registration meanwhile.
    for (HRESULT stored = S_FALSE; answer == S_OK && stored == S_FALSE;) {
        if (persistance_.IsSubscriptionAged(record_.vornaId)) {
            VORNA_LOG(LOG_TRACE, "The subscription has already aged. Going to subscribe again");
            return Renew(sender, RegistrationKind::Renewal, errorText);
        }
        answer = sender.Modify(record_.subscriptionId);
        if (answer != S_OK)
            break;
        stored = RecordModification(sender, errorText);
        // The subscription may just have aged, which ends its registration; then it is registered again.
        if (stored == S_OK || (FAILED(stored) && !persistance_.IsSubscriptionAged(record_.vornaId)))
            return stored;
    }
    if (answer != S_OK && !sender.SubscribesAgainAfter(answer)) {
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

// S_FALSE: the archive was renewed meanwhile, and the record has its new ID now.
HRESULT Subscription::RecordModification(Sender& sender, CPWStringBuffer& errorText) {
    const NamedLock registration = RegistrationLock(record_.clientCookie);
    if (!registration.Held()) {
        errorText = LOCKED;
        return E_FAIL;
    }
    std::wstring id;
    HRESULT result = persistance_.GetSubscriptionID(record_.clientCookie, id);
    if (result == S_OK && id != record_.subscriptionId) {
        record_.subscriptionId = id;
        return S_FALSE;
    }
    if (result == S_OK) {
        record_.kind = RegistrationKind::Modification;
        result = persistance_.AddSubscription(record_, sender.ClientId(), {});
    }
    if (result != S_OK) {
        VORNA_LOG(LOG_TRACE, "%s", sender.Texts().storeRefused);
        errorText = result == RESULT_NO_SUBSCRIPTION ? ENDED : sender.Texts().storeFailed;
    }
    return result == S_OK || FAILED(result) ? result : E_FAIL;
}

// Replaces the recorded registration by a new one. The archives are named after the registration, so they are copied to
// the new name before the record changes.
HRESULT Subscription::Renew(Sender& sender, RegistrationKind kind, CPWStringBuffer& errorText) {
    const Sender::Wording& texts = sender.Texts();
    NamedLock registration = RegistrationLock(record_.clientCookie);
    if (!registration.Held()) {
        errorText = LOCKED;
        return E_FAIL;
    }
    // The previous owner of the lock may have renewed the subscription as well; then its archives are the current ones.
    SubscriptionRecord current;
    if (HRESULT found = persistance_.GetSubscription(record_.clientCookie, current); found != S_OK) {
        errorText = found == RESULT_NO_SUBSCRIPTION ? ENDED : texts.storeFailed;
        return found;
    }
    const std::wstring oldId = current.subscriptionId;
    if (kind == RegistrationKind::Restoration) {
        // Another client has registered it again meanwhile.
        if (oldId != record_.subscriptionId)
            return S_FALSE;
        record_.subscriptionText = current.subscriptionText;
        record_.lifetime = SubscriptionInfo(current.subscriptionText).Aging();
    }
    std::wstring newId;
    if (HRESULT result = SubscribeAnew(sender, oldId, newId, errorText); result != S_OK) {
        if (kind == RegistrationKind::Restoration)
            VORNA_LOG(LOG_TRACE, "Failed to Subscribe with event manager");
        registration.Unlock();
        if (!newId.empty())
            (void)sender.Unsubscribe(newId);
        return result;
    }
    const SubscriptionArchive oldArchive(record_.archiveDirectory, oldId);
    const SubscriptionArchive newArchive(record_.archiveDirectory, newId);
    HRESULT result = newId == oldId ? S_OK : oldArchive.CopyTo(newArchive);
    if (result == S_OK) {
        record_.kind = kind;
        record_.subscriptionId = newId;
        result = persistance_.AddSubscription(record_, sender.ClientId(), {});
    }
    std::wstring recorded;
    const HRESULT found = result == S_OK ? S_OK : persistance_.GetSubscriptionID(record_.clientCookie, recorded);
    registration.Unlock();
    if (result != S_OK) {
        errorText = texts.storeFailed;
        VORNA_LOG(LOG_TRACE, "%s",
                  kind == RegistrationKind::Restoration ? "Failed to add the subscription to the archive"
                                                        : texts.storeRefused);
        // The new registration is ended only if the record certainly does not name it. If the record does, its archives
        // are complete.
        if (newId != oldId && (found == RESULT_NO_SUBSCRIPTION || (found == S_OK && recorded != newId))) {
            (void)sender.Unsubscribe(newId);
            newArchive.RemoveFiles();
            return result;
        }
        if (found != S_OK)
            return result;
    }
    if (newId == oldId)
        return result;
    // Usually the old registration no longer exists; if it does, nothing else would end it.
    (void)sender.Unsubscribe(oldId);
    oldArchive.MoveLateSnapShotsTo(newArchive);
    return result;
}

HRESULT Subscription::Unregister(Sender& sender, CPWStringBuffer& errorText) {
    const Sender::Wording& texts = sender.Texts();
    VORNA_LOG(LOG_TRACE, "%s", texts.unsubscribing);
    HRESULT deleted = S_FALSE;
    // Repeated with the new ID if another client renewed the registration meanwhile.
    while (deleted == S_FALSE) {
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
        deleted = DeleteRecordAndArchives(errorText);
    }
    return deleted;
}

// S_FALSE: the archive was renewed meanwhile, and the record has its new ID now.
HRESULT Subscription::DeleteRecordAndArchives(CPWStringBuffer& errorText) {
    {
        const NamedLock registration = RegistrationLock(record_.clientCookie);
        if (!registration.Held()) {
            errorText = LOCKED;
            return E_FAIL;
        }
        std::wstring id;
        if (persistance_.GetSubscriptionID(record_.clientCookie, id) == S_OK && id != record_.subscriptionId) {
            record_.subscriptionId = id;
            return S_FALSE;
        }
        if (HRESULT deleted = persistance_.DeleteSubscription(record_.subscriptionId); deleted != S_OK) {
            errorText = L"The subscription could not be deleted from the Persist file";
            return FAILED(deleted) ? deleted : E_FAIL;
        }
    }
    VORNA_LOG(LOG_TRACE, "Subscription Deleted from Persist file successfully");
    RemoveBaseDir();
    return S_OK;
}

bool Subscription::IsBeyondReading(HRESULT result, const SubscriptionRecord& record) {
    if (record.subscriptionId.empty() || record.archiveDirectory.empty())
        return false;
    return result == HRESULT_FROM_WIN32(ERROR_FILE_CORRUPT) || result == RESULT_XML_MALFORMED ||
           record.Archive().IsGone();
}

HRESULT Subscription::EndUnread(CPWStringBuffer& errorText) {
    VORNA_LOG(LOG_WARNING, "The subscription %S is ended without having been read : its archive is damaged",
              record_.subscriptionId.c_str());
    HRESULT result = S_FALSE;
    while (result == S_FALSE)
        result = DeleteRecordAndArchives(errorText);
    if (result == S_OK)
        MaintenanceTimer::Drop(persistance_);
    return result;
}

} // namespace vorna
