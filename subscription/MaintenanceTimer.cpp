#include "subscription/MaintenanceTimer.h"

#include "QXKeldan.h"
#include "common/com/bstr.h"
#include "common/com/results.h"
#include "common/log/Logging.h"
#include "common/services/platformservices.h"
#include "persist/GlobalLocks.h"
#include "src/ScheduleDocuments.h"
#include "subscription/TimerSender.h"

namespace vorna {

namespace {

constexpr Duration FREQUENCY{.minutes = 10};

} // namespace

HRESULT MaintenanceTimer::Schedule(std::wstring& schedule) {
    NotificationInfo notification;
    notification.entries.push_back({.type = NOTIFY_COM,
                                    .client = PROGID_VORNA,
                                    .parameter = std::wstring(COOKIE),
                                    .timeout = std::nullopt,
                                    .retryAttempts = 0,
                                    .retryFrequency = std::nullopt});
    const auto document = BuildScheduleInfo(FREQUENCY, AddDuration(LocalNow(), FREQUENCY), std::nullopt, notification);
    schedule = document.value_or(L"");
    return document ? S_OK : E_FAIL;
}

HRESULT MaintenanceTimer::Register(std::wstring& id) {
    id.clear();
    VORNA_LOG(LOG_TRACE, "Goint to Register for Maintainance Thread");
    com_ptr<IZEBTimer> timer;
    if (PlatformServices::CreateInstance(PROGID_TIMER, nullptr, timer) != S_OK) {
        VORNA_LOG(LOG_TRACE, "Unable to create Timer Instance.");
        return E_FAIL;
    }
    bstr ticket;
    if (timer->GetTicket(ticket.put()) != S_OK) {
        VORNA_LOG(LOG_TRACE, "Unable to Register with Timer ");
        return E_FAIL;
    }
    std::wstring schedule;
    if (HRESULT result = Schedule(schedule); result != S_OK)
        return result;
    bstr answered;
    const HRESULT result = timer->Subscribe(ticket.get(), bstr(schedule).get(), answered.put());
    if (result == S_OK)
        id = answered.str();
    return result;
}

HRESULT MaintenanceTimer::End(std::wstring_view clientId, std::wstring_view id) {
    TimerSender timer(nullptr, std::wstring(clientId));
    CPWStringBuffer ignoredText;
    if (HRESULT result = timer.Create(ignoredText); result != S_OK) {
        VORNA_LOG(LOG_TRACE, "Failed to create an instance of Timer");
        return result;
    }
    return timer.Unsubscribe(id);
}

void MaintenanceTimer::Drop(SubscriptionPersistance& persistance) {
    // No subscription may be registered between reading the list and ending the timer.
    const NamedLock registration = RegistrationLock();
    SubscriptionList list;
    if (persistance.GetSubscriptionsList(list) != RESULT_NO_SUBSCRIPTION)
        return;
    VORNA_LOG(LOG_TRACE, "No Subscriptions in the Vorna Persist File. Unscheduling the Maintainance ID");
    std::wstring clientId, id;
    (void)persistance.GetClientID(clientId);
    if (persistance.GetMaintainanceID(id) != S_OK)
        return;
    if (End(clientId, id) != S_OK) {
        VORNA_LOG(LOG_TRACE, "Failed to unsubscribe the Maintainance event from timer");
        return;
    }
    VORNA_LOG(LOG_TRACE, "Unscheduling Maintainance event from Timer Succeeded");
    if (persistance.DeleteMaintainanceID() == S_OK)
        VORNA_LOG(LOG_TRACE, "Maintainance ID deleted from the Vorna Persist File");
    else
        VORNA_LOG(LOG_TRACE, "Failed to Delete Maintainance ID from the Vorna Persist File");
}

} // namespace vorna
