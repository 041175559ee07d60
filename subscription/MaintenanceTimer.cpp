#include "subscription/MaintenanceTimer.h"

#include "QXKeldan.h"
#include "common/com/bstr.h"
#include "common/com/results.h"
#include "common/log/Logging.h"
#include "common/services/platformservices.h"
#include "persist/GlobalLocks.h"
#include "src/ScheduleDocuments.h"
#include "subscription/Subscription.h"
#include "subscription/TimerSender.h"

namespace vorna {

namespace {

constexpr Duration FREQUENCY{.minutes = 10};

} // namespace

HRESULT MaintenanceTimer::Schedule(std::wstring& schedule) {
    return Schedule(AddDuration(LocalNow(), FREQUENCY), schedule);
}

HRESULT MaintenanceTimer::Schedule(const SYSTEMTIME& start, std::wstring& schedule) {
    NotificationInfo notification;
    notification.entries.push_back({.type = NOTIFY_COM,
                                    .client = PROGID_VORNA,
                                    .parameter = std::wstring(COOKIE),
                                    .timeout = std::nullopt,
                                    .retryAttempts = 0,
                                    .retryFrequency = std::nullopt});
    const auto document = BuildScheduleInfo(FREQUENCY, start, std::nullopt, notification);
    schedule = document.value_or(L"");
    return document ? S_OK : E_FAIL;
}

void MaintenanceTimer::Ensure(SubscriptionPersistance& persistance, std::wstring& id) {
    id.clear();
    std::wstring recorded;
    const HRESULT found = persistance.FindMaintainanceID(recorded);
    // Without an answer there may be one.
    if (FAILED(found) || (found == S_OK && !IsLost(recorded)))
        return;
    (void)Subscription::RegisterforMaintananceEvent(id);
}

// Asks by a modification, which the timer refuses for a registration that it does not know. The schedule starts at the
// next full ten minutes, so that frequent modifications do not postpone the pass again and again.
bool MaintenanceTimer::IsLost(std::wstring_view id) {
    com_ptr<IZEBTimer> timer;
    if (PlatformServices::CreateInstance(PROGID_TIMER, nullptr, timer) != S_OK)
        return false;
    SYSTEMTIME start = LocalNow();
    start.wMinute -= start.wMinute % FREQUENCY.minutes;
    start.wSecond = 0;
    std::wstring schedule;
    return Schedule(AddDuration(start, FREQUENCY), schedule) == S_OK &&
           Sender::IsGone(timer->Modify(bstr(id).get(), bstr(schedule).get()));
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

void MaintenanceTimer::EndUnrecorded(SubscriptionPersistance& persistance, std::wstring_view id) {
    std::wstring recorded, clientId;
    if (id.empty() || persistance.FindMaintainanceID(recorded) != S_OK || recorded == id)
        return;
    VORNA_LOG(LOG_WARNING, "A maintenance timer that is not the recorded one is ended : %S", std::wstring(id).c_str());
    (void)persistance.GetClientID(clientId);
    (void)End(clientId, id);
}

void MaintenanceTimer::Drop(SubscriptionPersistance& persistance) {
    // No subscription may be registered between reading the list and ending the timer.
    const NamedLock folders = FolderLock();
    SubscriptionList list;
    if (!folders.Held() || persistance.GetSubscriptionsList(list) != RESULT_NO_SUBSCRIPTION)
        return;
    VORNA_LOG(LOG_TRACE, "No Subscriptions in the Vorna Persist File. Unscheduling the Maintainance ID");
    std::wstring clientId, id;
    (void)persistance.GetClientID(clientId);
    if (persistance.GetMaintainanceID(id) != S_OK)
        return;
    // A timer that no longer exists counts as ended.
    if (HRESULT ended = End(clientId, id); ended != S_OK && !Sender::IsGone(ended)) {
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
