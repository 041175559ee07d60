#include "common/sparse/MsxmlDocument.h"

#include "common/log/Logging.h"
#include "common/services/platformservices.h"
#include "common/xml/XmlCharacters.h"
#include "common/xml/XmlTags.h"

namespace vorna {

VARIANT VariantOf(const bstr& text) {
    VARIANT value;
    value.vt = VT_BSTR;
    value.bstrVal = text.get();
    return value;
}

HRESULT CreateDocument(com_ptr<IXMLDOMDocument2>& document) {
    HRESULT result = PlatformServices::CreateInstance(L"MSXML2.DOMDocument.4.0", nullptr, document);
    // Current systems no longer ship MSXML 4.0.
    if (FAILED(result))
        result = PlatformServices::CreateInstance(L"MSXML2.DOMDocument.6.0", nullptr, document);
    if (SUCCEEDED(result)) {
        document->put_async(VARIANT_FALSE);
        document->put_validateOnParse(VARIANT_FALSE);
        document->put_resolveExternals(VARIANT_FALSE);
    }
    return result;
}

namespace {

// The text without the encoding in its declaration, which is that of the bytes that the text was read from: versions of
// MSXML refuse several. The declaration stays, because it counts as a node of the document.
bstr WithoutEncoding(std::wstring_view xml) {
    constexpr std::wstring_view DECLARATION = L"<?xml";
    if (xml.size() > DECLARATION.size() && xml.starts_with(DECLARATION) && IsXmlSpace(xml[DECLARATION.size()])) {
        XmlAttributeWalk attributes(xml.substr(0, xml.find(L"?>")));
        while (attributes.Next())
            if (attributes.Name() == L"encoding")
                return bstr(std::wstring(xml.substr(0, attributes.begin())).append(xml.substr(attributes.end())));
    }
    return bstr(xml);
}

} // namespace

bool SetSelectionNamespaces(IXMLDOMDocument2* document, std::wstring_view declarations) {
    const bstr name(L"SelectionNamespaces");
    const bstr text(declarations);
    return SUCCEEDED(document->setProperty(name.get(), VariantOf(text)));
}

bool LoadDocument(IXMLDOMDocument2* document, std::wstring_view xml) {
    // The text is archived data of clients: it must not define entities, and MSXML would stop at a zero character.
    if (HasDoctype(xml) || xml.find(L'\0') != std::wstring_view::npos)
        return false;
    if (xml.starts_with(L'\xFEFF'))
        xml.remove_prefix(1);
    const bstr text = WithoutEncoding(xml);
    VARIANT_BOOL loaded = VARIANT_FALSE;
    return document->loadXML(text.get(), &loaded) == S_OK && loaded == VARIANT_TRUE;
}

com_ptr<IXMLDOMElement> RootElement(IXMLDOMNode* document) {
    com_ptr<IXMLDOMElement> root;
    if (const auto owner = com_ptr<IXMLDOMNode>(document).try_as<IXMLDOMDocument>())
        owner->get_documentElement(root.put());
    return root;
}

bstr RootMarkup(IXMLDOMNode* document) {
    bstr markup;
    const auto root = RootElement(document);
    if (!root)
        return markup;
    VARIANT_BOOL filled = VARIANT_FALSE;
    root->hasChildNodes(&filled);
    com_ptr<IXMLDOMDocument> owner;
    if (filled == VARIANT_TRUE && root->get_ownerDocument(owner.put()) == S_OK) {
        // Some versions of MSXML indent elements without text. A text node in the root, even an empty one, makes all
        // below it mixed content, which they write unchanged.
        com_ptr<IXMLDOMText> nothing;
        const bstr empty{std::wstring_view()};
        if (owner->createTextNode(empty.get(), nothing.put()) == S_OK)
            root->appendChild(nothing.get(), nullptr);
    }
    root->get_xml(markup.put());
    return markup;
}

bool MayStandAlone(IXMLDOMNode* node) {
    com_ptr<IXMLDOMNode> parent;
    DOMNodeType type = NODE_INVALID;
    if (node->get_parentNode(parent.put()) != S_OK || !parent || parent->get_nodeType(&type) != S_OK ||
        type != NODE_DOCUMENT)
        return true;
    com_ptr<IXMLDOMNodeList> children;
    long count = 0;
    if (parent->get_childNodes(children.put()) == S_OK && children->get_length(&count) == S_OK && count == 1)
        return true;
    VORNA_LOG(LOG_TRACE, "nodeList->get_length failed l1 value returned is not 1");
    return false;
}

} // namespace vorna
