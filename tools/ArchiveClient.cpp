#include "tools/ArchiveClient.h"

#include "common/com/bstr.h"
#include "tools/Components.h"

namespace vornactl {

namespace {

constexpr wchar_t PROGID_COMPONENT[] = L"QXKELDAN.Vorna";

} // namespace

ArchiveClient::ArchiveClient(const std::wstring& serviceFile)
    : service_(MakeService(serviceFile)), component_(Create<IXDMAccessEx>(PROGID_COMPONENT)) {}

void ArchiveClient::SetData(std::wstring_view document, const std::wstring& action) {
    vorna::bstr text;
    const HRESULT result = component_->SetData(service_.get(), vorna::bstr(document).get(), 0, text.put());
    if (result != S_OK)
        throw Failure(result, action, text.str());
}

std::wstring ArchiveClient::GetData(std::wstring_view xpath, std::wstring_view prefixes) {
    vorna::bstr text;
    vorna::bstr document;
    const HRESULT result = component_->GetData(service_.get(), vorna::bstr(xpath).get(), vorna::bstr(prefixes).get(),
                                               text.put(), document.put());
    if (result != S_OK)
        throw Failure(result, L"reading " + std::wstring(xpath), text.str());
    return document.str();
}

} // namespace vornactl
