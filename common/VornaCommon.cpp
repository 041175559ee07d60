#include "common/VornaCommon.h"

#include "QXKeldan.h"
#include "common/Logging.h"
#include "common/bstr.h"
#include "common/platformservices.h"

#include <windows.h>

#include <vector>

namespace VORNAUTILITY {

namespace {

// The file of the in-process server that is registered for a ProgID; empty where there is none.
std::wstring ServerFile(const wchar_t* progId) {
    CLSID classId{};
    if (FAILED(CLSIDFromProgID(progId, &classId)))
        return {};
    wchar_t guid[40];
    if (StringFromGUID2(classId, guid, static_cast<int>(std::size(guid))) == 0)
        return {};
    const std::wstring key = std::wstring(L"CLSID\\") + guid + L"\\InprocServer32";
    DWORD bytes = 0;
    LSTATUS status = ERROR_MORE_DATA;
    std::vector<wchar_t> value(MAX_PATH);
    // The value may grow between two calls.
    while (status == ERROR_MORE_DATA) {
        bytes = static_cast<DWORD>(value.size()) * sizeof(wchar_t);
        status = RegGetValueW(HKEY_CLASSES_ROOT, key.c_str(), nullptr, RRF_RT_REG_SZ, nullptr, value.data(), &bytes);
        if (status == ERROR_MORE_DATA)
            value.resize(value.size() * 2);
    }
    return status == ERROR_SUCCESS ? std::wstring(value.data()) : std::wstring();
}

} // namespace

std::wstring GetComponentDirectory() {
    VORNA_SCOPE_TRACE("VORNAUTILITY::GetComponentDirectory");
    std::wstring directory = ServerFile(vorna::PROGID_VORNA);
    if (directory.empty())
        return directory;
    if (const size_t last = directory.rfind(L'\\'); last != std::wstring::npos)
        directory.resize(last + 1);
    else
        directory += L'\\';
    return directory;
}

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
