// Subscriptions whose data are gathered on a schedule of the platform's timer.

#include "common/Logging.h"
#include "common/ProcessorFault.h"
#include "common/bstr.h"
#include "common/platformservices.h"
#include "common/results.h"
#include "persist/PersistFrame.h"
#include "subscription/ArchiveNames.h"
#include "subscription/RegistrationLock.h"
#include "subscription/Subscription.h"

namespace vorna {

namespace {

HRESULT GetTicket(IZEBTimer& timer, std::wstring& clientId) {
    bstr ticket;
    HRESULT result = timer.GetTicket(ticket.put());
    clientId = ticket.str();
    return result;
}

bool IsStaleTicket(HRESULT answer) {
    return answer == PLATFORM_TICKET_UNKNOWN || answer == PLATFORM_TICKET_STALE;
}

// The timer does not hold the registration any more.
bool IsGone(HRESULT answer) {
    return answer == PLATFORM_ID_UNKNOWN || answer == PLATFORM_ID_EXPIRED;
}

} // namespace

HRESULT Subscription::HandleSetDataforTimerEvent(SetDataOperation operation, CPWStringBuffer& errorText) {
    VORNA_SCOPE_TRACE("Subscription::HandleSetDataforTimerEvent");
    try {
        switch (operation) {
        case SetDataOperation::Register:
            return RegisterTimerEvent(errorText);
        case SetDataOperation::Modify:
            return ModifyTimerEvent(errorText);
        case SetDataOperation::Unregister:
            return UnregisterTimerEvent(errorText);
        }
        return E_INVALIDARG;
    } catch (const processor_fault&) {
        throw;
    } catch (...) {
        errorText = L"Unknown Exception Occured";
        VORNA_LOG(LOG_TRACE, "Subscription::HandleSetDataforTimerEvent~~~UnSpecified error occured.");
        return E_FAIL;
    }
}

// clientId comes in as the recorded ticket and goes out as the one that was used.
HRESULT Subscription::SubscribeWithTimer(IZEBTimer& timer, std::wstring& clientId, std::wstring& subscriptionId) {
    bstr id;
    HRESULT result = E_FAIL;
    // A ticket that the timer does not know any more is replaced once.
    for (bool fresh = clientId.empty();; fresh = true) {
        if (fresh) {
            result = GetTicket(timer, clientId);
            if (result != S_OK)
                return result;
        }
        bstr ticket(clientId);
        // Built anew for each try: it counts from now.
        bstr schedule(info_.TimerEvent()->ToXML());
        result = timer.Subscribe(ticket.get(), schedule.get(), id.put());
        if (fresh || !IsStaleTicket(result))
            break;
    }
    if (result == S_OK && (id.empty() || !SubscriptionPersistance::IsPlainValue(id.view()) ||
                           id.view().find_first_of(L"\\/:*?|.") != std::wstring_view::npos)) {
        VORNA_LOG(LOG_TRACE, "The timer's subscription ID cannot name an archive : \"%S\"", id.str().c_str());
        (void)UnsubscribeFromTimer(timer, clientId, id.view());
        return E_UNEXPECTED;
    }
    subscriptionId = id.str();
    return result;
}

HRESULT Subscription::UnsubscribeFromTimer(IZEBTimer& timer, std::wstring_view clientId,
                                           std::wstring_view subscriptionId) {
    bstr id(subscriptionId);
    bstr ticket(clientId);
    HRESULT result = timer.Unsubscribe(ticket.get(), id.get());
    if (!IsStaleTicket(result))
        return result;
    std::wstring fresh;
    if (GetTicket(timer, fresh) != S_OK)
        return result;
    return timer.Unsubscribe(bstr(fresh).get(), id.get());
}

HRESULT Subscription::RegisterTimerEvent(CPWStringBuffer& errorText) {
    com_ptr<IZEBTimer> timer;
    if (PlatformServices::CreateInstance(PROGID_TIMER, nullptr, timer) != S_OK) {
        errorText = L"Failed to register with ZEB's timer component";
        VORNA_LOG(LOG_TRACE, "Failed to register with ZEB's timer component");
        return RESULT_TIMER_REGISTRATION;
    }
    std::wstring clientId;
    if (persistance_.GetClientID(clientId) != S_OK)
        (void)GetTicket(*timer.get(), clientId);

    VORNA_LOG(LOG_TRACE,
              "Subscription::HandleSetDataforTimerEvent~~~Going to do GetData with Aggregator as it is timer event .");
    const DataSource& source = info_.TimerEvent()->source;
    std::wstring data;
    const HRESULT gathered = GetDataFromAggregator(service_.get(), source.xpath, source.prefixes, data);
    if (FAILED(gathered))
        VORNA_LOG(LOG_TRACE, "Error - Aggregator's GetData returned failure");

    VORNA_LOG(LOG_TRACE, "Subscription::HandleSetDataforTimerEvent~~~Going to Subscribe with Timer event .");
    RegistrationLock registration;
    if (!registration.held()) {
        errorText = L"Another registration did not end in time";
        return E_FAIL;
    }
    if (HRESULT answer = SubscribeWithTimer(*timer.get(), clientId, record_.SubscriptionId); answer != S_OK) {
        errorText = L"Failed to register with ZEB's timer component";
        VORNA_LOG(LOG_TRACE, "Failed to schedule an event with ZEB's timer component (hr: %#x)",
                  static_cast<unsigned>(answer));
        VORNA_LOG(LOG_TRACE, "Failed to Schedule an event With Timer");
        return RESULT_TIMER_REGISTRATION;
    }

    if (!CreateBaseDir()) {
        registration.unlock();
        (void)UnsubscribeFromTimer(*timer.get(), clientId, record_.SubscriptionId);
        errorText = L"Directory creation failed";
        VORNA_LOG(LOG_TRACE, "Subscription::HandleSetDataForTimerEvent~~ Directory Creation Failed");
        return E_FAIL;
    }

    std::wstring maintenanceId;
    const bool maintained = persistance_.GetMaintainanceID(maintenanceId) == S_OK;
    if (maintained || RegisterforMaintananceEvent(maintenanceId) != S_OK)
        maintenanceId.clear();

    record_.Kind = RegistrationKind::New;
    if (HRESULT added = persistance_.AddSubscription(record_, clientId, maintenanceId); added != S_OK) {
        VORNA_LOG(LOG_TRACE,
                  "Subscription::HandleSetDataforTimerEvent~~~Add to Archive file Failed. Going to Rollback.");
        errorText = L"Failed to archive subscription information";
        registration.unlock();
        (void)UnsubscribeFromTimer(*timer.get(), clientId, record_.SubscriptionId);
        RemoveBaseDir();
        // A maintenance timer that nobody recorded would never be found again.
        std::wstring recorded;
        if (!maintenanceId.empty() && persistance_.GetMaintainanceID(recorded) != S_OK)
            (void)UnsubscribeFromTimer(*timer.get(), clientId, maintenanceId);
        return added;
    }
    registration.unlock();

    if (!data.empty())
        (void)AddSnapShotToArchive(data);
    else if (gathered == S_OK)
        VORNA_LOG(LOG_TRACE, "Error - Aggregator's GetData returned S_OK, but output data was NULL");
    VORNA_LOG(LOG_TRACE,
              "Returning from the SetData of subscription with subscription ID :\"%S\" and Vorna ID :\"%S\" and "
              "ServiceObject :\"%S\"",
              record_.SubscriptionId.c_str(), record_.VornaId.c_str(), record_.ServiceXml.c_str());
    return S_OK;
}

HRESULT Subscription::ModifyTimerEvent(CPWStringBuffer& errorText) {
    com_ptr<IZEBTimer> timer;
    if (PlatformServices::CreateInstance(PROGID_TIMER, nullptr, timer) != S_OK) {
        errorText = L"Failed to register with ZEB's timer component";
        VORNA_LOG(LOG_TRACE, "Failed to register with ZEB's timer component");
        return RESULT_TIMER_REGISTRATION;
    }
    std::wstring clientId;
    (void)persistance_.GetClientID(clientId);

    bstr id(record_.SubscriptionId);
    bstr schedule(info_.TimerEvent()->ToXML());
    const HRESULT answer = timer->Modify(id.get(), schedule.get());
    if (answer == S_OK) {
        record_.Kind = RegistrationKind::Modification;
        HRESULT added = persistance_.AddSubscription(record_, clientId, {});
        if (added != S_OK) {
            errorText = L"Failed to archive subscription information";
            VORNA_LOG(LOG_TRACE, "Add subscription to persistance failed");
        }
        return added;
    }
    if (!IsGone(answer)) {
        errorText = L"Failed to modify the schedule with ZEB's timer component";
        VORNA_LOG(LOG_TRACE, "Failed to modify the schedule with ZEB's timer component (hr: %#x)",
                  static_cast<unsigned>(answer));
        return answer;
    }

    VORNA_LOG(LOG_TRACE, "Modification is failed.Subscribing Again");
    RegistrationLock registration;
    const std::wstring oldId = record_.SubscriptionId;
    std::wstring newId;
    if (!registration.held() || SubscribeWithTimer(*timer.get(), clientId, newId) != S_OK) {
        errorText = L"Failed to register with ZEB's timer component";
        VORNA_LOG(LOG_TRACE, "Failed to Schedule an event With Timer");
        return RESULT_TIMER_REGISTRATION;
    }
    // The archives are named after the registration, so what was captured so far goes over to the new name first.
    HRESULT result = CopyArchives(oldId, newId);
    if (result == S_OK) {
        record_.Kind = RegistrationKind::Renewal;
        record_.SubscriptionId = newId;
        result = persistance_.AddSubscription(record_, clientId, {});
    }
    registration.unlock();
    if (result != S_OK) {
        errorText = L"Failed to archive subscription information";
        VORNA_LOG(LOG_TRACE, "Add subscription to persistance failed");
        (void)UnsubscribeFromTimer(*timer.get(), clientId, newId);
        SubscriptionRecord recorded;
        // Only when the record still names the old archives are the new ones nobody's.
        if (persistance_.GetSubscription(newId, recorded) == RESULT_NO_SUBSCRIPTION)
            RemoveArchives(newId);
        return result;
    }
    RemoveArchives(oldId);
    return S_OK;
}

HRESULT Subscription::UnregisterTimerEvent(CPWStringBuffer& errorText) {
    VORNA_LOG(LOG_TRACE, "Subscription::HandleSetDataforTimerEvent~~~Going to Unregister with Timer event .");
    VORNA_LOG(LOG_TRACE, "Unregistering the subscription id :%S", record_.SubscriptionId.c_str());
    std::wstring clientId;
    (void)persistance_.GetClientID(clientId);
    com_ptr<IZEBTimer> timer;
    HRESULT answer = PlatformServices::CreateInstance(PROGID_TIMER, nullptr, timer);
    if (answer == S_OK)
        answer = UnsubscribeFromTimer(*timer.get(), clientId, record_.SubscriptionId);
    // A registration that is not there any more is as good as ended.
    if (answer != S_OK && !IsGone(answer)) {
        VORNA_LOG(LOG_TRACE, "Subscription::HandleSetDataforTimerEvent~~~Unregistration with Timer Failed.");
        VORNA_LOG(LOG_TRACE, "Unregistration with Timer event Failed.");
        (void)persistance_.DeleteSubscription(record_.SubscriptionId);
        VORNA_LOG(LOG_TRACE, "Unregistration with Timer event Failed. Subscription has been invalidated");
        errorText = L"Subscription has been invalidated";
        return FAILED(answer) ? answer : E_FAIL;
    }
    VORNA_LOG(LOG_TRACE, "Subscription::HandleSetDataforTimerEvent~~~Unregistration with Timer Succeeded. Going to "
                         "delete the subscription from Persist file.");
    if (HRESULT deleted = persistance_.DeleteSubscription(record_.SubscriptionId); deleted != S_OK) {
        errorText = L"The subscription could not be deleted from the Persist file";
        return deleted;
    }
    VORNA_LOG(LOG_TRACE, "Subscription Deleted from Persist file successfully");
    RemoveBaseDir();
    return S_OK;
}

} // namespace vorna
