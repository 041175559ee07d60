#include "platform/timer/ZEBTimer.h"

#include "common/com/bstr.h"
#include "platform/hosting/ServiceSlot.h"
#include "platform/timer/TimerService.h"

namespace keldan {

namespace {

ServiceSlot<TimerService> served;

std::wstring Text(BSTR text) {
    return std::wstring(vorna::view_of(text));
}

} // namespace

void ZEBTimer::Serve(TimerService* service) {
    served.Set(service);
}

STDMETHODIMP ZEBTimer::GetTicket(BSTR* ticket) {
    if (!ticket)
        return E_POINTER;
    *ticket = nullptr;
    return served.With([&](TimerService& service) {
        std::wstring made;
        const HRESULT result = service.GetTicket(made);
        if (SUCCEEDED(result))
            *ticket = vorna::bstr(made).release();
        return result;
    });
}

STDMETHODIMP ZEBTimer::Subscribe(BSTR ticket, BSTR schedule, BSTR* subscriptionId) {
    if (!subscriptionId)
        return E_POINTER;
    *subscriptionId = nullptr;
    return served.With([&](TimerService& service) {
        std::wstring made;
        const HRESULT result = service.Subscribe(Text(ticket), vorna::view_of(schedule), made);
        if (SUCCEEDED(result))
            *subscriptionId = vorna::bstr(made).release();
        return result;
    });
}

STDMETHODIMP ZEBTimer::Unsubscribe(BSTR ticket, BSTR subscriptionId) {
    return served.With([&](TimerService& service) { return service.Unsubscribe(Text(ticket), Text(subscriptionId)); });
}

STDMETHODIMP ZEBTimer::Modify(BSTR subscriptionId, BSTR schedule) {
    return served.With(
        [&](TimerService& service) { return service.Modify(Text(subscriptionId), vorna::view_of(schedule)); });
}

} // namespace keldan
