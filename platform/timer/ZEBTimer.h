// "QXKELDAN.ZEBTimer": the COM class of the process's timer.
#pragma once

#include "QXKeldan.h"
#include "platform/hosting/ServedObject.h"

namespace keldan {

class TimerService;

class ZEBTimer : public ServedObject<ZEBTimer, IZEBTimer, TimerService> {
  public:
    STDMETHODIMP GetTicket(BSTR* ticket) override;
    STDMETHODIMP Reserved2() override { return E_NOTIMPL; }
    STDMETHODIMP Subscribe(BSTR ticket, BSTR schedule, BSTR* subscriptionId) override;
    STDMETHODIMP Unsubscribe(BSTR ticket, BSTR subscriptionId) override;
    STDMETHODIMP Reserved5() override { return E_NOTIMPL; }
    STDMETHODIMP Reserved6() override { return E_NOTIMPL; }
    STDMETHODIMP Modify(BSTR subscriptionId, BSTR schedule) override;
};

} // namespace keldan
