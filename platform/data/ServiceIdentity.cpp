#include "platform/data/ServiceIdentity.h"

#include "QXKeldan.h"
#include "common/com/bstr.h"
#include "common/com/com_ptr.h"
#include "common/com/results.h"

namespace keldan {

HRESULT ServiceIdentity::Of(IUnknown* service, ServiceIdentity& identity) {
    identity = {};
    const auto object = vorna::com_ptr<IUnknown>(service).try_as<IZEBServiceObject>();
    vorna::bstr portId;
    vorna::bstr serviceId;
    vorna::bstr serviceUri;
    if (!object || FAILED(object->get_portID(portId.put())) || FAILED(object->get_serviceId(serviceId.put())) ||
        FAILED(object->get_serviceURI(serviceUri.put())))
        return vorna::RESULT_SERVICE_OBJECT;
    identity = {portId.str(), serviceId.str(), serviceUri.str()};
    return S_OK;
}

} // namespace keldan
