// "QXKELDAN.ZEBService": service documents in, service objects out.
#pragma once

#include "QXKeldan.h"
#include "common/com/com_server.h"

namespace keldan {

// Has no state: any number of threads may call it.
class ServiceFactory : public vorna::dispatch_object<ServiceFactory, IZEBServiceFactory> {
  public:
    // Elements are matched by their local names, so a document in a namespace will do; blanks around a value are not
    // part of it.
    STDMETHODIMP CreateService(BSTR serviceXml, IUnknown** service) override;
};

} // namespace keldan
