// Ends event-manager subscriptions that have reached their end date, and restores those that the event manager has
// lost.

#include "common/com/results.h"
#include "common/log/Logging.h"
#include "common/services/ServiceObjects.h"
#include "common/services/platformservices.h"
#include "subscription/EventManagerSender.h"
#include "subscription/Subscription.h"

namespace vorna {

bool Subscription::HasReachedEnd(std::wstring_view endDate) {
    const SYSTEMTIME now = LocalNow();
    SYSTEMTIME end{};
    // ParseDateTime rejects past years, but such an end date has certainly been reached.
    if (!ParseDateTime(endDate, end))
        return end.wYear > 0 && end.wYear < now.wYear;
    return IsLaterOrEqual(now, end);
}

HRESULT Subscription::UnregisterAged(std::wstring_view endDate) {
    VORNA_LOG(LOG_TRACE, "Subscription Aged. Going to unregister %S with the Event Manager",
              record_.subscriptionId.c_str());
    EventManagerSender eventManager(nullptr);
    CPWStringBuffer ignoredText;
    if (HRESULT created = eventManager.Create(ignoredText); created != S_OK) {
        VORNA_LOG(LOG_TRACE, "Unable to create instance of Event Manager");
        return created;
    }
    // A registration that no longer exists counts as ended.
    if (HRESULT answer = eventManager.Unsubscribe(record_.subscriptionId); answer != S_OK && !Sender::IsGone(answer)) {
        VORNA_LOG(LOG_TRACE, "Unsubscription with Event Manager failed");
        return S_OK;
    }
    VORNA_LOG(LOG_TRACE, "Unsubscription with Event Manager Passed");
    const HRESULT marked = persistance_.SetAgingForSubscription(record_.subscriptionId, endDate);
    if (marked == S_FALSE)
        return SUCCEEDED(RestoreRegistration()) ? S_FALSE : E_FAIL;
    if (marked != S_OK)
        VORNA_LOG(LOG_TRACE, "Failed to Set aging flag for the subscription");
    return S_OK;
}

HRESULT Subscription::RestoreRegistration() {
    const ScopeTrace trace("Subscription::RestoreRegistration");
    const KROEventInfo* event = info_.KROEvent();
    if (!event || event->ToXML().subscription.empty()) {
        VORNA_LOG(LOG_TRACE, "Failed to create subscription Ticket for subscribing");
        return E_FAIL;
    }
    CPWStringBuffer errorText;
    if (HRESULT result = VORNAUTILITY::GetServiceObject(record_.serviceXml, service_, errorText); result != S_OK) {
        VORNA_LOG(LOG_TRACE, "Failed to Create Service Object from the Service XML");
        return result;
    }
    EventManagerSender eventManager(event, RecordedClientId());
    if (HRESULT created = eventManager.Create(errorText); created != S_OK) {
        VORNA_LOG(LOG_TRACE, "Failed to Create an instance of event manager");
        return created;
    }
    // A modification without changes shows whether the registration still exists.
    const HRESULT known = eventManager.Modify(record_.subscriptionId);
    if (!Sender::IsGone(known))
        return known == S_OK ? S_FALSE : known;
    return Renew(eventManager, RegistrationKind::Restoration, errorText);
}

} // namespace vorna
