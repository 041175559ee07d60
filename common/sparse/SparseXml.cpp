#include "common/sparse/SparseXml.h"

#include "common/log/CatchAll.h"
#include "common/services/XmlAccessor.h"
#include "common/sparse/MsxmlDocument.h"
#include "common/sparse/SparseCut.h"
#include "common/sparse/XPathCost.h"
#include "common/xml/XPathTokens.h"
#include "common/xml/XmlTags.h"

#include <string>
#include <vector>

namespace VORNAUTILITY {

namespace {

using namespace vorna;

// The declarations of the prefixes that the XPath uses, as the platform's accessor lists them. The accessor is given a
// document of these declarations alone: parsing the whole text twice would double the cost, and the list of all
// declarations cannot be used if one of them has a namespace name that is not valid in it.
std::wstring NamespaceList(std::wstring_view xml, const std::vector<XPathToken>& xpath) {
    std::wstring list;
    const std::wstring declarations = NamespaceDeclarations(xml, PrefixesOf(xpath));
    if (declarations.empty())
        return list;
    XmlAccessor accessor;
    if (accessor.Create() != S_OK || accessor.Load(declarations) != S_OK || accessor.GetNamespaceList(list) != S_OK)
        list.clear();
    return list;
}

// Evaluation recurses for every bracket and step, on the stack of a client's thread.
bool IsEvaluable(std::wstring_view xpath, const std::vector<XPathToken>& tokens) {
    constexpr std::size_t MOST_LEVELS = 100;
    constexpr std::size_t MOST_CHARACTERS = 8192;
    if (xpath.size() > MOST_CHARACTERS || xpath.find(L'\0') != std::wstring_view::npos)
        return false;
    std::size_t level = 0;
    for (const XPathToken& token : tokens) {
        if (token.text == L"(" || token.text == L"[") {
            if (++level > MOST_LEVELS)
                return false;
        } else if ((token.text == L")" || token.text == L"]") && level > 0) {
            --level;
        }
    }
    return true;
}

std::wstring BuildSparseXml(std::wstring_view xml, std::wstring_view xpath) {
    com_ptr<IXMLDOMDocument2> source;
    if (FAILED(CreateDocument(source))) {
        VORNA_LOG(LOG_TRACE, "GetSparseXMLFromXPath: Failed to create MSMXL4.0 instance");
        return {};
    }
    if (FAILED(source->put_preserveWhiteSpace(VARIANT_TRUE))) {
        VORNA_LOG(LOG_TRACE, "GetSparseXMLFromXPath: Failed in call to put_preserveWhiteSpace");
        return {};
    }
    const std::vector<XPathToken> tokens = TokenizeXPath(xpath);
    const std::wstring namespaces = NamespaceList(xml, tokens);
    if (!namespaces.empty() && !SetSelectionNamespaces(source.get(), namespaces)) {
        VORNA_LOG(LOG_TRACE, "GetSparseXMLFromXPath: Failed when setting the selectionNamespaces property");
        return {};
    }
    if (!LoadDocument(source.get(), xml)) {
        VORNA_LOG(LOG_TRACE, "GetSparseXMLFromXPath: Failed to load input XML");
        return {};
    }
    const bool evaluable = IsEvaluable(xpath, tokens);
    if (evaluable && TakesTooLong(tokens, xml)) {
        VORNA_LOG(LOG_TRACE, "GetSparseXMLFromXPath: The XPath would take too long: %S", std::wstring(xpath).c_str());
        return {};
    }
    const bstr query(xpath);
    com_ptr<IXMLDOMNodeList> nodes;
    if (!evaluable || source->selectNodes(query.get(), nodes.put()) != S_OK || !nodes) {
        VORNA_LOG(LOG_TRACE, "GetSparseXMLFromXPath: Failed in call to SelectNodes");
        return {};
    }
    long count = 0;
    if (FAILED(nodes->get_length(&count))) {
        VORNA_LOG(LOG_TRACE, "GetSparseXMLFromXPath: Failed to get length of nodelist");
        return {};
    }
    if (count <= 0)
        return {};
    // All at once, because a list may be read from the document while that changes.
    std::vector<com_ptr<IXMLDOMNode>> selected(static_cast<std::size_t>(count));
    for (long i = 0; i < count; ++i)
        nodes->get_item(i, selected[static_cast<std::size_t>(i)].put());
    // The traces name the operations that would build the document node by node.
    SparseCut cut(source.get(), xml);
    for (const auto& node : selected) {
        const ScopeTrace trace("VORNAUTILITY::MountDocument");
        cut.Mark(node.get());
    }
    const ScopeTrace trace("VORNAUTILITY::RemoveIdNode");
    return cut.Write(RootMarkup(source.get()).view());
}

} // namespace

void GetSparseXMLFromXPath(std::wstring_view xml, std::wstring_view xpath, std::wstring& result) {
    // Assigned at the end, because the arguments may be views of result.
    result =
        CatchAll("VORNAUTILITY::GetSparseXMLFromXPath", std::wstring(), [&] { return BuildSparseXml(xml, xpath); });
}

} // namespace VORNAUTILITY
