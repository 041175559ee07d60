#include "common/services/ServiceObjects.h"

#include "QXKeldan.h"
#include "common/com/bstr.h"
#include "common/log/CatchAll.h"
#include "common/services/platformservices.h"

namespace VORNAUTILITY {

HRESULT GetServiceObject(std::wstring_view serviceXml, vorna::com_ptr<IUnknown>& service,
                         vorna::CPWStringBuffer& errorText) {
    service.reset();
    return vorna::CatchAll("VORNAUTILITY::GetServiceObject", E_FAIL, [&]() -> HRESULT {
        const auto fail = [&](const wchar_t* text) {
            service.reset();
            errorText = text;
            VORNA_LOG(vorna::LOG_TRACE, "%S", text);
            return E_FAIL;
        };
        vorna::com_ptr<IZEBServiceFactory> factory;
        if (FAILED(vorna::PlatformServices::CreateInstance(vorna::PROGID_SERVICE_FACTORY, nullptr, factory)) ||
            !factory)
            return fail(L"Create Instance of Service failed");
        const vorna::bstr document(serviceXml);
        if (FAILED(factory->CreateService(document.get(), service.put())) || !service)
            return fail(L"ServiceFactory CreateService() failed");
        return S_OK;
    });
}

} // namespace VORNAUTILITY
