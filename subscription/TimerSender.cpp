#include "subscription/TimerSender.h"

#include "common/com/bstr.h"
#include "common/com/results.h"
#include "common/log/Logging.h"
#include "common/services/platformservices.h"

namespace vorna {

namespace {

bool IsStaleTicket(HRESULT answer) {
    return answer == PLATFORM_TICKET_UNKNOWN || answer == PLATFORM_TICKET_STALE;
}

} // namespace

const Sender::Wording& TimerSender::Texts() const {
    static constexpr Wording TEXTS{
        .unspecified = "Subscription::HandleSetDataforTimerEvent~~~UnSpecified error occured.",
        .notCreated = L"Failed to register with ZEB's timer component",
        .subscribing = "Subscription::HandleSetDataforTimerEvent~~~Going to Subscribe with Timer event .",
        .subscribeRefused = "Failed to Schedule an event With Timer",
        .subscribeFailed = L"Failed to register with ZEB's timer component",
        .noId = L"Failed to register with ZEB's timer component",
        .noDirectory = "Subscription::HandleSetDataForTimerEvent~~ Directory Creation Failed",
        .addRefused = "Subscription::HandleSetDataforTimerEvent~~~Add to Archive file Failed. Going to Rollback.",
        .addFailed = L"Failed to archive subscription information",
        .modifying = "Subscription::HandleSetDataforTimerEvent~~~Going to modify the schedule with Timer event .",
        .modifyFailed = L"Failed to modify the schedule with ZEB's timer component",
        .storeRefused = "Add subscription to persistance failed",
        .storeFailed = L"Failed to archive subscription information",
        .resubscribed = "Successfully Resubscribed with Timer",
        .unsubscribing = "Subscription::HandleSetDataforTimerEvent~~~Going to Unregister with Timer event .",
        .unsubscribeRefused = "Subscription::HandleSetDataforTimerEvent~~~Unregistration with Timer Failed.",
        .unsubscribeFailed = "Unregistration with Timer event Failed.",
        .invalidated = "Unregistration with Timer event Failed. Subscription has been invalidated",
        .invalidatedText = L"Subscription has been invalidated",
        .unsubscribed =
            "Subscription::HandleSetDataforTimerEvent~~~Unregistration with Timer Succeeded. Going to delete the subscription from Persist file.",
    };
    return TEXTS;
}

HRESULT TimerSender::CreateComponent() {
    return PlatformServices::CreateInstance(PROGID_TIMER, nullptr, timer_);
}

HRESULT TimerSender::ResultOfRefusal(HRESULT) const {
    return RESULT_TIMER_REGISTRATION;
}

HRESULT TimerSender::GetTicket(std::wstring& ticket) {
    bstr text;
    const HRESULT result = timer_->GetTicket(text.put());
    ticket = text.str();
    return result;
}

HRESULT TimerSender::SubscribeWithComponent(std::wstring& id) {
    bstr answered;
    HRESULT result = E_FAIL;
    // A ticket that the timer no longer accepts is replaced once.
    for (bool replaced = false;; replaced = true) {
        if (replaced || clientId_.empty()) {
            result = GetTicket(clientId_);
            if (result != S_OK)
                return result;
        }
        // Built again for each attempt, because its dates are relative to now.
        const bstr schedule(info_->ToXML());
        result = timer_->Subscribe(bstr(clientId_).get(), schedule.get(), answered.put());
        if (replaced || !IsStaleTicket(result))
            break;
    }
    if (result != S_OK)
        VORNA_LOG(LOG_TRACE, "Failed to schedule an event with ZEB's timer component");
    id = answered.str();
    return result;
}

HRESULT TimerSender::Modify(std::wstring_view id) {
    return timer_->Modify(bstr(id).get(), bstr(info_->ToXML()).get());
}

HRESULT TimerSender::Unsubscribe(std::wstring_view id) {
    const bstr registration(id);
    const HRESULT result = timer_->Unsubscribe(bstr(clientId_).get(), registration.get());
    if (!IsStaleTicket(result))
        return result;
    std::wstring fresh;
    if (GetTicket(fresh) != S_OK)
        return result;
    return timer_->Unsubscribe(bstr(fresh).get(), registration.get());
}

} // namespace vorna
