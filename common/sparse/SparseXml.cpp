#include "common/sparse/SparseXml.h"

#include "common/log/CatchAll.h"
#include "common/services/XmlAccessor.h"
#include "common/sparse/MsxmlDocument.h"
#include "common/sparse/SparseCut.h"
#include "common/xml/XmlTags.h"

#include <string>

namespace VORNAUTILITY {

namespace {

using namespace vorna;

// The declarations of xml as the platform's accessor lists them. The accessor is given a document of the declarations
// alone, because parsing the whole text twice would double the cost. An xpath without a colon has no prefixes.
std::wstring NamespaceList(std::wstring_view xml, std::wstring_view xpath) {
    std::wstring list;
    if (xpath.find(L':') == std::wstring_view::npos)
        return list;
    const std::wstring declarations = NamespaceDeclarations(xml);
    if (declarations.empty())
        return list;
    XmlAccessor accessor;
    if (accessor.Create() != S_OK || accessor.Load(declarations) != S_OK || accessor.GetNamespaceList(list) != S_OK)
        list.clear();
    return list;
}

// MSXML recurses for every bracket and step, on the stack of the client's thread.
bool IsEvaluable(std::wstring_view xpath) {
    constexpr std::size_t MAX_LEVELS = 100;
    constexpr std::size_t MAX_CHARACTERS = 8192;
    if (xpath.size() > MAX_CHARACTERS || xpath.find(L'\0') != std::wstring_view::npos)
        return false;
    std::size_t level = 0;
    for (const wchar_t c : xpath) {
        if (c == L'(' || c == L'[') {
            if (++level > MAX_LEVELS)
                return false;
        } else if ((c == L')' || c == L']') && level > 0) {
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
    const std::wstring namespaces = NamespaceList(xml, xpath);
    if (!namespaces.empty() && !SetSelectionNamespaces(source.get(), namespaces)) {
        VORNA_LOG(LOG_TRACE, "GetSparseXMLFromXPath: Failed when setting the selectionNamespaces property");
        return {};
    }
    if (!LoadDocument(source.get(), xml)) {
        VORNA_LOG(LOG_TRACE, "GetSparseXMLFromXPath: Failed to load input XML");
        return {};
    }
    const bstr query(xpath);
    com_ptr<IXMLDOMNodeList> nodes;
    if (!IsEvaluable(xpath) || source->selectNodes(query.get(), nodes.put()) != S_OK || !nodes) {
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
    // Clients expect the traces of these two operations, although SparseCut does the work of both.
    SparseCut cut(xml);
    for (long i = 0; i < count; ++i) {
        const ScopeTrace trace("VORNAUTILITY::MountDocument");
        com_ptr<IXMLDOMNode> node;
        nodes->get_item(i, node.put());
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
