#include "platform/service/ServiceFactory.h"

#include "common/com/bstr.h"
#include "common/com/com_ptr.h"
#include "common/xml/XmlCharacters.h"
#include "platform/service/ServiceObject.h"
#include "platform/xml/XmlDocument.h"

#include <string>
#include <string_view>

namespace keldan {

namespace {

// The trimmed text of the first element that the path selects.
std::wstring ValueOf(XmlDocument& document, std::wstring_view xpath) {
    const auto found = document.Select(xpath);
    return found.empty() ? std::wstring() : std::wstring(vorna::Trimmed(found[0].Text()));
}

} // namespace

STDMETHODIMP ServiceFactory::CreateService(BSTR serviceXml, IUnknown** service) {
    if (!service)
        return E_POINTER;
    *service = nullptr;
    return vorna::closed_door([&] {
        XmlDocument document(vorna::view_of(serviceXml));
        // In any namespace.
        const auto child = [](const std::wstring& parent, const wchar_t* name) {
            return parent + L"/*[local-name()='" + name + L"'][1]";
        };
        if (document.Select(L"/*[local-name()='service']").empty())
            return vorna::RESULT_XML_MALFORMED;
        const std::wstring root = L"/*";
        const std::wstring more = child(root, L"additionalInfo");
        const auto value = [&](const std::wstring& parent, const wchar_t* name) {
            return ValueOf(document, child(parent, name));
        };
        vorna::com_ptr<ServiceObject> made;
        made.attach(new ServiceObject({value(root, L"portID"), value(root, L"serviceId"), value(root, L"serviceURI"),
                                       value(more, L"model"), value(more, L"address"), value(more, L"addressType"),
                                       value(more, L"friendlyName")}));
        *service = made.detach();
        return S_OK;
    });
}

} // namespace keldan
