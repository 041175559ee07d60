#include "tools/Components.h"

#include "QXKeldan.h"
#include "common/com/bstr.h"
#include "common/com/results.h"
#include "common/services/Directories.h"
#include "common/services/XmlAccessor.h"
#include "tools/TextFile.h"

namespace vornactl {

void RequireComponent(const wchar_t* action) {
    CLSID component{};
    HRESULT result = CLSIDFromProgID(vorna::PROGID_VORNA, &component);
    if (SUCCEEDED(result) && VORNAUTILITY::GetComponentDirectory().empty())
        result = REGDB_E_CLASSNOTREG;
    if (FAILED(result))
        throw Failure(result, action, L"The component is not registered on this machine.");
}

std::wstring RecordFile() {
    return VORNAUTILITY::GetComponentDirectory() + L"Vorna";
}

vorna::com_ptr<IUnknown> MakeService(const std::wstring& file) {
    const std::wstring document = ReadDocument(file);
    const auto factory = Create<IZEBServiceFactory>(vorna::PROGID_SERVICE_FACTORY);
    vorna::com_ptr<IUnknown> service;
    const HRESULT result = factory->CreateService(vorna::bstr(document).get(), service.put());
    if (FAILED(result) || !service)
        throw Failure(FAILED(result) ? result : E_FAIL, L"making a service object of " + file);
    return service;
}

std::wstring ReadXml(const std::wstring& file) {
    std::wstring document = ReadDocument(file);
    vorna::XmlAccessor accessor;
    if (const HRESULT result = accessor.Create(); result != S_OK)
        throw Failure(result, L"creating " + std::wstring(vorna::PROGID_XML_ACCESSOR));
    if (accessor.Load(document) != S_OK)
        throw Failure(vorna::RESULT_XML_MALFORMED, L"reading " + file,
                      L"The file is not well-formed XML, nests too deep or has a document type definition.");
    return document;
}

} // namespace vornactl
