#include "platform/service/ServiceFactory.h"

#include "common/bstr.h"
#include "common/com_ptr.h"
#include "platform/service/ServiceObject.h"
#include "platform/xml/Failure.h"
#include "platform/xml/XmlDocument.h"

#include <new>
#include <string>
#include <string_view>

namespace keldan {

namespace {

node_index FindChild(const XmlDocument& document, node_index parent, std::wstring_view name) {
    if (parent == NO_NODE)
        return NO_NODE;
    for (node_index i = parent + 1; i < document[parent].after; i = document[i].after)
        if (document[i].kind == NodeKind::Element && document.localName(i) == name)
            return i;
    return NO_NODE;
}

std::wstring ValueOf(const XmlDocument& document, node_index parent, std::wstring_view name) {
    std::wstring value;
    if (const node_index child = FindChild(document, parent, name); child != NO_NODE)
        document.appendText(child, value);
    const size_t begin = value.find_first_not_of(L" \t\r\n");
    if (begin == value.npos)
        return {};
    return value.substr(begin, value.find_last_not_of(L" \t\r\n") + 1 - begin);
}

} // namespace

STDMETHODIMP ServiceFactory::CreateService(BSTR serviceXml, IUnknown** service) {
    if (!service)
        return E_POINTER;
    *service = nullptr;
    try {
        const XmlDocument document{std::wstring(vorna::view_of(serviceXml))};
        const node_index root = document.root();
        if (document.localName(root) != L"service")
            return vorna::RESULT_XML_MALFORMED;
        const node_index more = FindChild(document, root, L"additionalInfo");
        vorna::com_ptr<ServiceObject> made;
        made.attach(new ServiceObject({ValueOf(document, root, L"portID"), ValueOf(document, root, L"serviceId"),
                                       ValueOf(document, root, L"serviceURI"), ValueOf(document, more, L"model"),
                                       ValueOf(document, more, L"address"), ValueOf(document, more, L"addressType"),
                                       ValueOf(document, more, L"friendlyName")}));
        *service = made.detach();
        return S_OK;
    } catch (const failure& failed) {
        return failed.result;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (...) {
        return E_FAIL;
    }
}

} // namespace keldan
