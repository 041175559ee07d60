// "QXKELDAN.ZEBTimer": the COM class of the process's timer. Free-threaded; objects hold no state.
#pragma once

#include "QXKeldan.h"
#include "common/com/com_server.h"

namespace keldan {

class TimerService;

class ZEBTimer : public vorna::dispatch_object<ZEBTimer, IZEBTimer> {
  public:
    // The service behind all objects of this process. Set it before the class is registered; it must outlive all
    // objects.
    static void Serve(TimerService* service);

    STDMETHODIMP GetTicket(BSTR* ticket) override;
    STDMETHODIMP Reserved2() override { return E_NOTIMPL; }
    STDMETHODIMP Subscribe(BSTR ticket, BSTR schedule, BSTR* subscriptionId) override;
    STDMETHODIMP Unsubscribe(BSTR ticket, BSTR subscriptionId) override;
    STDMETHODIMP Reserved5() override { return E_NOTIMPL; }
    STDMETHODIMP Reserved6() override { return E_NOTIMPL; }
    STDMETHODIMP Modify(BSTR subscriptionId, BSTR schedule) override;
};

} // namespace keldan
