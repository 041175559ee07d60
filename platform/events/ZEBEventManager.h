// "QXKELDAN.ZEBEventManager": the COM face of the process's event manager. Free-threaded; objects hold no state.
#pragma once

#include "QXKeldan.h"
#include "common/com/com_server.h"

namespace keldan {

class EventManagerService;

class ZEBEventManager : public vorna::dispatch_object<ZEBEventManager, IZEBEventManager> {
  public:
    // The service that all objects of this process speak for; set before the class is registered, and alive for as long
    // as there are objects.
    static void Serve(EventManagerService* service);

    STDMETHODIMP Subscribe(BSTR subscription, BSTR filter, BSTR receiver, BSTR* subscriptionId) override;
    STDMETHODIMP Modify(BSTR subscriptionId, BSTR subscription, BSTR filter) override;
    STDMETHODIMP Unsubscribe(BSTR subscriptionId) override;
    STDMETHODIMP Raise(BSTR name, BSTR eventProperties, BSTR payload, long* subscriptions) override;
};

} // namespace keldan
