// "QXKELDAN.ZEBEventAccess": the COM class of the process's event access. Free-threaded; objects hold no state.
#pragma once

#include "QXKeldan.h"
#include "common/com/com_server.h"

namespace keldan {

class EventAccessService;

class ZEBEventAccess : public vorna::dispatch_object<ZEBEventAccess, IZEBEventAccess> {
  public:
    // The service behind all objects of this process. Set it before the class is registered; it must outlive all
    // objects.
    static void Serve(EventAccessService* service);

    STDMETHODIMP Subscribe(IUnknown* service, BSTR subscription, BSTR* answer) override;
    STDMETHODIMP Modify(IUnknown* service, BSTR subscriptionId, BSTR subscription) override;
    STDMETHODIMP Unsubscribe(IUnknown* service, BSTR subscriptionId) override;
};

} // namespace keldan
