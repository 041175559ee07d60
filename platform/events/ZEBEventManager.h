// "QXKELDAN.ZEBEventManager": the COM class of the process's event manager. Free-threaded; objects hold no state.
#pragma once

#include "QXKeldan.h"
#include "common/com/com_server.h"

namespace keldan {

class EventManagerService;

class ZEBEventManager : public vorna::dispatch_object<ZEBEventManager, IZEBEventManager> {
  public:
    // The service behind all objects of this process. Set it before the class is registered; it must outlive all
    // objects.
    static void Serve(EventManagerService* service);

    STDMETHODIMP Subscribe(BSTR subscription, BSTR filter, BSTR receiver, BSTR* subscriptionId) override;
    STDMETHODIMP Modify(BSTR subscriptionId, BSTR subscription, BSTR filter) override;
    STDMETHODIMP Unsubscribe(BSTR subscriptionId) override;
    STDMETHODIMP Raise(BSTR name, BSTR eventProperties, BSTR payload, long* subscriptions) override;
};

} // namespace keldan
