#include "ArchiveClient.h"

#include "Failure.h"
#include "QXKeldan.h"
#include "TextFile.h"
#include "common/XmlAccessor.h"
#include "common/bstr.h"
#include "common/platformservices.h"

namespace vornactl {

namespace {

constexpr wchar_t PROGID_COMPONENT[] = L"QXKELDAN.Vorna";

template <typename Interface>
vorna::com_ptr<Interface> Create(const wchar_t* progId) {
    vorna::com_ptr<Interface> object;
    const HRESULT result = vorna::PlatformServices::CreateInstance(progId, nullptr, object);
    if (FAILED(result))
        throw failure(result, L"creating " + std::wstring(progId));
    return object;
}

vorna::com_ptr<IUnknown> MakeService(const std::wstring& file) {
    const std::wstring document = ReadDocument(file);
    const auto factory = Create<IZEBServiceFactory>(vorna::PROGID_SERVICE_FACTORY);
    vorna::com_ptr<IUnknown> service;
    const HRESULT result = factory->CreateService(vorna::bstr(document).get(), service.put());
    if (FAILED(result) || !service)
        throw failure(FAILED(result) ? result : E_FAIL, L"making a service object of " + file);
    return service;
}

} // namespace

ArchiveClient::ArchiveClient(const std::wstring& serviceFile)
    : service_(MakeService(serviceFile)), component_(Create<IXDMAccessEx>(PROGID_COMPONENT)) {}

void ArchiveClient::SetData(std::wstring_view document, const std::wstring& doing) {
    vorna::bstr text;
    const HRESULT result = component_->SetData(service_.get(), vorna::bstr(document).get(), 0, text.put());
    if (result != S_OK)
        throw failure(result, doing, text.str());
}

std::wstring ArchiveClient::GetData(std::wstring_view xpath, std::wstring_view prefixes) {
    vorna::bstr text;
    vorna::bstr document;
    const HRESULT result = component_->GetData(service_.get(), vorna::bstr(xpath).get(), vorna::bstr(prefixes).get(),
                                               text.put(), document.put());
    if (result != S_OK)
        throw failure(result, L"reading " + std::wstring(xpath), text.str());
    return document.str();
}

subscription_summary Summarise(std::wstring_view document) {
    subscription_summary summary;
    vorna::XmlAccessor accessor;
    std::wstring collect;
    if (accessor.Create() == S_OK && accessor.Load(document) == S_OK &&
        accessor.QueryText(L"/Archive/@ID", summary.archiveId) == S_OK &&
        accessor.QueryText(L"/Archive/Collect", collect) == S_OK)
        summary.collect = collect == L"ON";
    return summary;
}

std::wstring EndingDocument(std::wstring_view archiveId) {
    std::wstring escaped;
    for (wchar_t letter : archiveId) {
        switch (letter) {
        case L'&':
            escaped += L"&amp;";
            break;
        case L'<':
            escaped += L"&lt;";
            break;
        case L'"':
            escaped += L"&quot;";
            break;
        default:
            escaped += letter;
        }
    }
    return L"<Archive ID=\"" + escaped + L"\"><Collect>OFF</Collect></Archive>";
}

} // namespace vornactl
