// "QXKELDAN.ZEBService": creates service objects from service documents.
#pragma once

#include "QXKeldan.h"
#include "common/com/com_server.h"

namespace keldan {

// Free-threaded; objects hold no state.
class ServiceFactory : public vorna::dispatch_object<ServiceFactory, IZEBServiceFactory> {
  public:
    // Elements are matched by their local names, so the document may use a namespace; values are trimmed.
    STDMETHODIMP CreateService(BSTR serviceXml, IUnknown** service) override;
};

} // namespace keldan
