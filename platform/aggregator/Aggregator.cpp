#include "platform/aggregator/Aggregator.h"

#include "common/com/bstr.h"
#include "common/com/result_error.h"
#include "common/xml/XmlEscape.h"
#include "platform/aggregator/DataModels.h"
#include "platform/xml/NodeMarkup.h"
#include "platform/xml/Prefixes.h"
#include "platform/xml/XmlDocument.h"

#include <algorithm>
#include <string>
#include <vector>

namespace keldan {

namespace {

std::wstring DataDocument(XmlDocument& document, const std::vector<XmlNode>& nodes, std::wstring_view serviceUri) {
    if (std::any_of(nodes.begin(), nodes.end(),
                    [](const XmlNode& node) { return node.Type() == NODE_DOCUMENT || node.IsRoot(); }))
        return document.Text();
    std::wstring markup = L"<Data service=\"";
    vorna::AppendEscaped(markup, serviceUri, vorna::XmlContext::Attribute);
    markup.append(L"\">");
    for (const XmlNode& node : nodes)
        AppendNode(document, node, markup);
    return markup.append(L"</Data>");
}

HRESULT Gather(IUnknown* service, std::wstring_view xpath, std::wstring_view prefixText, std::wstring& data,
               std::wstring& message) {
    ServiceIdentity identity;
    if (const HRESULT result = ServiceIdentity::Of(service, identity); FAILED(result)) {
        message = L"The service is no service object, or does not tell its identity.";
        return result;
    }
    PrefixMap prefixes;
    if (!ReadPrefixes(prefixText, prefixes, message))
        return E_INVALIDARG;
    std::wstring text;
    std::wstring name;
    if (const HRESULT result = GetDataModel(identity, text, name, message); FAILED(result))
        return result;

    std::vector<XmlNode> nodes;
    try {
        XmlDocument document(text);
        try {
            nodes = document.Select(xpath, prefixes);
        } catch (const vorna::result_error& error) {
            message = L"\"" + std::wstring(xpath) +
                      (error.result() == E_INVALIDARG ? L"\" is no XPath that selects nodes."
                                                      : L"\" takes too long on the data model \"" + name + L"\".");
            return error.result();
        }
        if (!nodes.empty())
            data = DataDocument(document, nodes, identity.serviceUri);
    } catch (const vorna::result_error& error) {
        message =
            L"The data model \"" + name + L"\" is not well-formed, nests too deep or has a document type definition.";
        return error.result();
    }
    if (nodes.empty()) {
        message = L"\"" + std::wstring(xpath) + L"\" selects nothing in the data model \"" + name + L"\".";
        return S_FALSE;
    }
    message = std::to_wstring(nodes.size()) + L" nodes of the data model \"" + name + L"\".";
    return S_OK;
}

} // namespace

HRESULT Aggregator::GetData(IUnknown* service, BSTR xpath, BSTR prefixes, BSTR* data, BSTR* secondResult) {
    if (data)
        *data = nullptr;
    if (secondResult)
        *secondResult = nullptr;
    if (!data || !secondResult)
        return E_POINTER;
    return vorna::closed_door([&] {
        std::wstring found;
        std::wstring message;
        const HRESULT result = Gather(service, vorna::view_of(xpath), vorna::view_of(prefixes), found, message);
        vorna::bstr messageText(message);
        if (result == S_OK)
            *data = vorna::bstr(found).release();
        *secondResult = messageText.release();
        return result;
    });
}

} // namespace keldan
