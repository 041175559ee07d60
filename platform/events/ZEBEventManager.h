// "QXKELDAN.ZEBEventManager": the COM class of the process's event manager.
#pragma once

#include "QXKeldan.h"
#include "platform/hosting/ServedObject.h"

namespace keldan {

class EventManagerService;

class ZEBEventManager : public ServedObject<ZEBEventManager, IZEBEventManager, EventManagerService> {
  public:
    STDMETHODIMP Subscribe(BSTR subscription, BSTR filter, BSTR receiver, BSTR* subscriptionId) override;
    STDMETHODIMP Modify(BSTR subscriptionId, BSTR subscription, BSTR filter) override;
    STDMETHODIMP Unsubscribe(BSTR subscriptionId) override;
    STDMETHODIMP Raise(BSTR name, BSTR eventProperties, BSTR payload, long* subscriptions) override;
};

} // namespace keldan
