#include "platform/timer/ZEBTimer.h"

#include "platform/timer/TimerService.h"

namespace keldan {

STDMETHODIMP ZEBTimer::GetTicket(BSTR* ticket) {
    return Answer(ticket, [](TimerService& service, std::wstring& made) { return service.GetTicket(made); });
}

STDMETHODIMP ZEBTimer::Subscribe(BSTR ticket, BSTR schedule, BSTR* subscriptionId) {
    return Answer(subscriptionId, [&](TimerService& service, std::wstring& id) {
        return service.Subscribe(ToText(ticket), vorna::view_of(schedule), id);
    });
}

STDMETHODIMP ZEBTimer::Unsubscribe(BSTR ticket, BSTR subscriptionId) {
    return With([&](TimerService& service) { return service.Unsubscribe(ToText(ticket), ToText(subscriptionId)); });
}

STDMETHODIMP ZEBTimer::Modify(BSTR subscriptionId, BSTR schedule) {
    return With(
        [&](TimerService& service) { return service.Modify(ToText(subscriptionId), vorna::view_of(schedule)); });
}

} // namespace keldan
