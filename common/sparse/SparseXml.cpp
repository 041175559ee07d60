#include "common/sparse/SparseXml.h"

#include "common/log/Logging.h"
#include "common/services/XmlAccessor.h"
#include "common/services/platformservices.h"
#include "common/sparse/SparseBuilder.h"
#include "common/sparse/SparseCut.h"
#include "common/sparse/SparseText.h"
#include "common/xml/XmlTags.h"
#include "common/xml/msxml.h"

#include <optional>
#include <string>

namespace VORNAUTILITY {

namespace {

using namespace vorna;

constexpr wchar_t MARK[] = L"idNode";

HRESULT CreateDocument(com_ptr<IXMLDOMDocument2>& document) {
    HRESULT result = PlatformServices::CreateInstance(L"MSXML2.DOMDocument.4.0", nullptr, document);
    // Systems of today come without 4.0.
    if (FAILED(result))
        result = PlatformServices::CreateInstance(L"MSXML2.DOMDocument.6.0", nullptr, document);
    if (SUCCEEDED(result)) {
        document->put_async(VARIANT_FALSE);
        document->put_validateOnParse(VARIANT_FALSE);
        document->put_resolveExternals(VARIANT_FALSE);
    }
    return result;
}

// The declarations of xml as the platform's accessor gives them. Only a document's declarations bear on its list, so
// the accessor is given a document of just these: parsing the whole text twice would double the cost. An xpath without
// a colon has no prefix that a list could explain.
std::wstring NamespaceList(std::wstring_view xml, std::wstring_view xpath) {
    std::wstring list;
    if (xpath.find(L':') == std::wstring_view::npos)
        return list;
    std::wstring declarations = NamespaceDeclarations(xml);
    if (declarations.empty())
        return list;
    XmlAccessor accessor;
    if (accessor.Create() != S_OK || accessor.Load(declarations) != S_OK || accessor.GetNamespaceList(list) != S_OK)
        list.clear();
    return list;
}

bool SetSelectionNamespaces(IXMLDOMDocument2* document, std::wstring_view list) {
    bstr name(L"SelectionNamespaces");
    bstr text(list);
    VARIANT value;
    value.vt = VT_BSTR;
    value.bstrVal = text.get();
    return SUCCEEDED(document->setProperty(name.get(), value));
}

bool LoadDocument(IXMLDOMDocument2* document, std::wstring_view xml) {
    // The text is archived data of clients: nothing in it may define entities, and MSXML would stop at a null.
    if (HasDoctype(xml) || xml.find(L'\0') != std::wstring_view::npos)
        return false;
    bstr text(xml);
    VARIANT_BOOL loaded = VARIANT_FALSE;
    return document->loadXML(text.get(), &loaded) == S_OK && loaded == VARIANT_TRUE;
}

// A name for the marks that stands nowhere in xml, so that an attribute of the user's own named so is left alone.
std::wstring FreeMark(std::wstring_view xml) {
    std::wstring mark = MARK;
    for (int i = 1; xml.find(mark) != std::wstring_view::npos; ++i)
        mark = MARK + std::to_wstring(i);
    return mark;
}

// Evaluation recurses for every bracket and step, on a stack that is a client's.
bool IsEvaluable(std::wstring_view xpath) {
    constexpr std::size_t MOST_LEVELS = 100;
    constexpr std::size_t MOST_CHARACTERS = 8192;
    if (xpath.size() > MOST_CHARACTERS || xpath.find(L'\0') != std::wstring_view::npos)
        return false;
    std::size_t level = 0;
    for (wchar_t c : xpath) {
        if (c == L'(' || c == L'[') {
            if (++level > MOST_LEVELS)
                return false;
        } else if ((c == L')' || c == L']') && level > 0) {
            --level;
        }
    }
    return true;
}

// The text of the document's root element; empty where there is none.
bstr RootText(IXMLDOMDocument2* document) {
    bstr text;
    com_ptr<IXMLDOMElement> root;
    if (document->get_documentElement(root.put()) != S_OK || !root)
        return text;
    VARIANT_BOOL filled = VARIANT_FALSE;
    root->hasChildNodes(&filled);
    if (filled == VARIANT_TRUE) {
        // Some implementations of MSXML indent what holds no text; with a text node at the top, though an empty one,
        // all that lies below is mixed content to them and is written as it is.
        com_ptr<IXMLDOMText> nothing;
        bstr empty{std::wstring_view()};
        if (document->createTextNode(empty.get(), nothing.put()) == S_OK)
            root->appendChild(nothing.get(), nullptr);
    }
    root->get_xml(text.put());
    return text;
}

// How many elements a second document may get. Making one costs about as much as writing out 32,000 characters, each
// element in it as much as 1,000; beyond this the result is cut out of the source's text, which costs the same for any
// selection.
std::size_t MostCopies(std::wstring_view xml) {
    std::size_t thousands = xml.size() / 1024;
    return thousands > 32 ? thousands - 32 : 0;
}

struct Selection {
    std::wstring_view xml;
    com_ptr<IXMLDOMDocument2> source;
    com_ptr<IXMLDOMNodeList> nodes;
    long count = 0;
    std::wstring mark;
    bool keepReturns = false;
};

// False where this way does not serve the selection. mounted: the nodes done by then.
bool BuildFromCopies(const Selection& selection, std::wstring& result, long& mounted) {
    std::size_t most = MostCopies(selection.xml);
    // A clone's own declarations could not be told from those that it repeats.
    if (static_cast<std::size_t>(selection.count) > most || DeclaresBelowRoot(selection.xml))
        return false;
    com_ptr<IXMLDOMDocument2> target;
    if (FAILED(CreateDocument(target))) {
        VORNA_LOG(LOG_TRACE, "GetSparseXMLFromXPath: Failed to create MSMXL4.0 instance");
        return true;
    }
    target->put_preserveWhiteSpace(VARIANT_TRUE);
    SparseBuilder builder(target, selection.mark);
    for (; mounted < selection.count; ++mounted) {
        if (builder.Elements().size() > most)
            return false;
        const ScopeTrace trace("VORNAUTILITY::MountDocument");
        com_ptr<IXMLDOMNode> node;
        selection.nodes->get_item(mounted, node.put());
        // A node that cannot be mounted is logged; the others are given.
        (void)builder.Mount(node.get());
    }
    {
        const ScopeTrace trace("VORNAUTILITY::RemoveIdNode");
        builder.RemoveMarks();
    }
    bstr text = RootText(target.get());
    result = PlainAttributes(SparseText(text.view(), builder.Elements(), selection.keepReturns).Write());
    return true;
}

void BuildFromText(const Selection& selection, long mounted, std::wstring& result) {
    SparseCut cut(selection.mark);
    for (long i = 0; i < selection.count; ++i) {
        std::optional<ScopeTrace> trace;
        if (i >= mounted)
            trace.emplace(Scope("VORNAUTILITY::MountDocument"));
        com_ptr<IXMLDOMNode> node;
        selection.nodes->get_item(i, node.put());
        (void)cut.Mark(node.get());
    }
    const ScopeTrace trace("VORNAUTILITY::RemoveIdNode");
    bstr text = RootText(selection.source.get());
    result = PlainAttributes(cut.Write(text.view(), selection.keepReturns));
}

void BuildSparseXml(std::wstring_view xml, std::wstring_view xpath, std::wstring& result) {
    Selection selection;
    selection.xml = xml;
    com_ptr<IXMLDOMDocument2>& source = selection.source;
    if (FAILED(CreateDocument(source))) {
        VORNA_LOG(LOG_TRACE, "GetSparseXMLFromXPath: Failed to create MSMXL4.0 instance");
        return;
    }
    if (FAILED(source->put_preserveWhiteSpace(VARIANT_TRUE))) {
        VORNA_LOG(LOG_TRACE, "GetSparseXMLFromXPath: Failed in call to put_preserveWhiteSpace");
        return;
    }
    std::wstring namespaces = NamespaceList(xml, xpath);
    if (!namespaces.empty() && !SetSelectionNamespaces(source.get(), namespaces)) {
        VORNA_LOG(LOG_TRACE, "GetSparseXMLFromXPath: Failed when setting the selectionNamespaces property");
        return;
    }
    if (!LoadDocument(source.get(), xml)) {
        VORNA_LOG(LOG_TRACE, "GetSparseXMLFromXPath: Failed to load input XML");
        return;
    }
    bstr query(xpath);
    if (!IsEvaluable(xpath) || source->selectNodes(query.get(), selection.nodes.put()) != S_OK || !selection.nodes) {
        VORNA_LOG(LOG_TRACE, "GetSparseXMLFromXPath: Failed in call to SelectNodes");
        return;
    }
    if (FAILED(selection.nodes->get_length(&selection.count))) {
        VORNA_LOG(LOG_TRACE, "GetSparseXMLFromXPath: Failed to get length of nodelist");
        return;
    }
    if (selection.count <= 0)
        return;
    selection.mark = FreeMark(xml);
    selection.keepReturns = xml.find(L'\r') != std::wstring_view::npos;
    long mounted = 0;
    if (!BuildFromCopies(selection, result, mounted))
        BuildFromText(selection, mounted, result);
}

} // namespace

void GetSparseXMLFromXPath(std::wstring_view xml, std::wstring_view xpath, std::wstring& result) {
    const ScopeTrace trace("VORNAUTILITY::GetSparseXMLFromXPath");
    try {
        // The arguments may be views of result.
        std::wstring built;
        BuildSparseXml(xml, xpath, built);
        result = std::move(built);
    } catch (...) {
        VORNA_LOG(LOG_TRACE, "Unknown Exception Occured");
        result.clear();
    }
}

HRESULT MountDocument(IXMLDOMNode* selected, IXMLDOMDocument2* target) {
    const ScopeTrace trace("VORNAUTILITY::MountDocument");
    if (!selected || !target)
        return E_POINTER;
    try {
        return SparseBuilder(com_ptr<IXMLDOMDocument2>(target), MARK).Mount(selected);
    } catch (...) {
        VORNA_LOG(LOG_TRACE, "Unknown Exception Occured");
        return S_FALSE;
    }
}

void RemoveIdNode(IXMLDOMDocument2* target) {
    const ScopeTrace trace("VORNAUTILITY::RemoveIdNode");
    if (!target)
        return;
    try {
        SparseBuilder::RemoveMarks(target, MARK);
    } catch (...) {
        VORNA_LOG(LOG_TRACE, "Unknown Exception Occured");
    }
}

} // namespace VORNAUTILITY
