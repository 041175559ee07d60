#include "common/services/ServiceObjects.h"

#include "QXKeldan.h"
#include "common/com/bstr.h"
#include "common/log/Logging.h"
#include "common/services/platformservices.h"

namespace VORNAUTILITY {

HRESULT GetServiceObject(std::wstring_view serviceXml, vorna::com_ptr<IUnknown>& service,
                         vorna::CPWStringBuffer& errorText) {
    VORNA_SCOPE_TRACE("VORNAUTILITY::GetServiceObject");
    service.reset();
    try {
        vorna::com_ptr<IZEBServiceFactory> factory;
        if (FAILED(vorna::PlatformServices::CreateInstance(vorna::PROGID_SERVICE_FACTORY, nullptr, factory)) ||
            !factory) {
            errorText = L"Create Instance of Service failed";
            VORNA_LOG(vorna::LOG_TRACE, "Create Instance of Service failed");
            return E_FAIL;
        }
        const vorna::bstr document(serviceXml);
        if (FAILED(factory->CreateService(document.get(), service.put())) || !service) {
            service.reset();
            errorText = L"ServiceFactory CreateService() failed";
            VORNA_LOG(vorna::LOG_TRACE, "ServiceFactory CreateService() failed");
            return E_FAIL;
        }
        return S_OK;
    } catch (...) {
        service.reset();
        VORNA_LOG(vorna::LOG_ERROR, "Unknown Exception Occured");
        return E_FAIL;
    }
}

} // namespace VORNAUTILITY
