// "QXKELDAN.ZEBEventAccess": the COM class of the process's event access.
#pragma once

#include "QXKeldan.h"
#include "platform/hosting/ServedObject.h"

namespace keldan {

class EventAccessService;

class ZEBEventAccess : public ServedObject<ZEBEventAccess, IZEBEventAccess, EventAccessService> {
  public:
    STDMETHODIMP Subscribe(IUnknown* service, BSTR subscription, BSTR* answer) override;
    STDMETHODIMP Modify(IUnknown* service, BSTR subscriptionId, BSTR subscription) override;
    STDMETHODIMP Unsubscribe(IUnknown* service, BSTR subscriptionId) override;
};

} // namespace keldan
