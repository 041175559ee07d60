#include "common/Logging.h"
#include "common/SparseBuilder.h"
#include "common/VornaCommon.h"
#include "common/XmlAccessor.h"
#include "common/XmlTags.h"
#include "common/msxml.h"
#include "common/platformservices.h"

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
// the accessor is given a document of just these: parsing the whole text twice would double the cost.
std::wstring NamespaceList(std::wstring_view xml) {
    std::wstring list;
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

// The root element's text as it stood in the source.
class SparseText {
  public:
    SparseText(std::wstring_view built, const std::vector<bool>& elements, bool keepReturns)
        : built_(built), elements_(elements), keepReturns_(keepReturns) {}

    std::wstring Write();

  private:
    struct Binding {
        std::wstring_view name;
        std::wstring_view value;
        std::size_t depth;
    };

    void WriteStartTag(std::wstring_view markup, std::size_t depth, bool whole);
    bool IsInScope(std::wstring_view name, std::wstring_view value) const;
    void Append(std::wstring_view piece);

    std::wstring_view built_;
    const std::vector<bool>& elements_;
    bool keepReturns_;
    std::wstring text_;
    std::vector<Binding> scope_;
};

std::wstring SparseText::Write() {
    text_.reserve(built_.size());
    std::size_t written = 0;
    if (built_.find(L"xmlns") != std::wstring_view::npos) {
        XmlTagWalk tags(built_);
        std::size_t depth = 0;
        // The depth of the whole copy that the walk is in; 0 outside.
        std::size_t whole = 0;
        std::size_t element = 0;
        while (tags.Next()) {
            if (tags.kind() == XmlTag::End) {
                if (depth == whole)
                    whole = 0;
                while (!scope_.empty() && scope_.back().depth == depth)
                    scope_.pop_back();
                --depth;
                continue;
            }
            if (whole == 0 && element < elements_.size()) {
                bool copiedWhole = elements_[element++];
                Append(built_.substr(written, tags.begin() - written));
                WriteStartTag(tags.markup(), depth + 1, copiedWhole || tags.kind() == XmlTag::Empty);
                written = tags.end();
                if (copiedWhole && tags.kind() == XmlTag::Start)
                    whole = depth + 1;
            }
            if (tags.kind() == XmlTag::Start)
                ++depth;
        }
    }
    Append(built_.substr(written));
    return std::move(text_);
}

// A clone carries declarations for its own names even where its new parent has them already; native MSXML leaves them
// out of the text, and so does this.
void SparseText::WriteStartTag(std::wstring_view markup, std::size_t depth, bool whole) {
    std::size_t written = 0;
    XmlAttributeWalk attributes(markup);
    while (attributes.Next()) {
        if (!attributes.IsNamespace())
            continue;
        if (IsInScope(attributes.name(), attributes.value())) {
            Append(markup.substr(written, attributes.begin() - written));
            written = attributes.end();
        } else if (!whole) {
            scope_.push_back({attributes.name(), attributes.value(), depth});
        }
    }
    Append(markup.substr(written));
}

bool SparseText::IsInScope(std::wstring_view name, std::wstring_view value) const {
    for (auto binding = scope_.rbegin(); binding != scope_.rend(); ++binding)
        if (binding->name == name)
            return binding->value == value;
    return false;
}

// MSXML writes every line end as two characters.
void SparseText::Append(std::wstring_view piece) {
    while (!keepReturns_) {
        std::size_t at = piece.find(L'\r');
        if (at == std::wstring_view::npos)
            break;
        text_.append(piece.substr(0, at));
        piece.remove_prefix(at + 1);
    }
    text_.append(piece);
}

std::wstring TextOf(IXMLDOMDocument2* target, const std::vector<bool>& elements, bool keepReturns) {
    com_ptr<IXMLDOMElement> root;
    if (target->get_documentElement(root.put()) != S_OK || !root)
        return {};
    VARIANT_BOOL filled = VARIANT_FALSE;
    root->hasChildNodes(&filled);
    if (filled == VARIANT_TRUE) {
        // Some implementations of MSXML indent what holds no text; with a text node at the top, though an empty one,
        // all that lies below is mixed content to them and is written as it is.
        com_ptr<IXMLDOMText> nothing;
        bstr empty{std::wstring_view()};
        if (target->createTextNode(empty.get(), nothing.put()) == S_OK)
            root->appendChild(nothing.get(), nullptr);
    }
    bstr text;
    if (root->get_xml(text.put()) != S_OK)
        return {};
    return SparseText(text.view(), elements, keepReturns).Write();
}

void BuildSparseXml(std::wstring_view xml, std::wstring_view xpath, std::wstring& result) {
    com_ptr<IXMLDOMDocument2> source;
    if (FAILED(CreateDocument(source))) {
        VORNA_LOG(LOG_TRACE, "GetSparseXMLFromXPath: Failed to create MSMXL4.0 instance");
        return;
    }
    if (FAILED(source->put_preserveWhiteSpace(VARIANT_TRUE))) {
        VORNA_LOG(LOG_TRACE, "GetSparseXMLFromXPath: Failed in call to put_preserveWhiteSpace");
        return;
    }
    std::wstring namespaces = NamespaceList(xml);
    if (!namespaces.empty() && !SetSelectionNamespaces(source.get(), namespaces)) {
        VORNA_LOG(LOG_TRACE, "GetSparseXMLFromXPath: Failed when setting the selectionNamespaces property");
        return;
    }
    if (!LoadDocument(source.get(), xml)) {
        VORNA_LOG(LOG_TRACE, "GetSparseXMLFromXPath: Failed to load input XML");
        return;
    }
    bstr query(xpath);
    com_ptr<IXMLDOMNodeList> nodes;
    if (source->selectNodes(query.get(), nodes.put()) != S_OK || !nodes) {
        VORNA_LOG(LOG_TRACE, "GetSparseXMLFromXPath: Failed in call to SelectNodes");
        return;
    }
    long count = 0;
    if (FAILED(nodes->get_length(&count))) {
        VORNA_LOG(LOG_TRACE, "GetSparseXMLFromXPath: Failed to get length of nodelist");
        return;
    }
    if (count <= 0)
        return;
    com_ptr<IXMLDOMDocument2> target;
    if (FAILED(CreateDocument(target))) {
        VORNA_LOG(LOG_TRACE, "GetSparseXMLFromXPath: Failed to create MSMXL4.0 instance");
        return;
    }
    target->put_preserveWhiteSpace(VARIANT_TRUE);
    SparseBuilder builder(target, FreeMark(xml), SparseBuilder::Marks::Source);
    for (long i = 0; i < count; ++i) {
        com_ptr<IXMLDOMNode> node;
        nodes->get_item(i, node.put());
        VORNA_SCOPE_TRACE("VORNAUTILITY::MountDocument");
        (void)builder.Mount(node.get());
    }
    result = TextOf(target.get(), builder.elements(), xml.find(L'\r') != std::wstring_view::npos);
}

} // namespace

void GetSparseXMLFromXPath(std::wstring_view xml, std::wstring_view xpath, std::wstring& result) {
    VORNA_SCOPE_TRACE("VORNAUTILITY::GetSparseXMLFromXPath");
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
    VORNA_SCOPE_TRACE("VORNAUTILITY::MountDocument");
    if (!selected || !target)
        return E_POINTER;
    try {
        SparseBuilder builder(com_ptr<IXMLDOMDocument2>(target), MARK, SparseBuilder::Marks::SourceAndTarget);
        return builder.Mount(selected);
    } catch (...) {
        VORNA_LOG(LOG_TRACE, "Unknown Exception Occured");
        return S_FALSE;
    }
}

void RemoveIdNode(IXMLDOMDocument2* target) {
    VORNA_SCOPE_TRACE("VORNAUTILITY::RemoveIdNode");
    if (!target)
        return;
    try {
        bstr marked(L"//*[@idNode]");
        bstr name(MARK);
        com_ptr<IXMLDOMNodeList> nodes;
        if (target->selectNodes(marked.get(), nodes.put()) != S_OK)
            return;
        long count = 0;
        nodes->get_length(&count);
        // Collected first: a list may be read from the document as it goes.
        std::vector<com_ptr<IXMLDOMElement>> elements;
        for (long i = 0; i < count; ++i) {
            com_ptr<IXMLDOMNode> node;
            nodes->get_item(i, node.put());
            elements.push_back(node.try_as<IXMLDOMElement>());
        }
        for (const auto& element : elements)
            if (element)
                element->removeAttribute(name.get());
    } catch (...) {
        VORNA_LOG(LOG_TRACE, "Unknown Exception Occured");
    }
}

} // namespace VORNAUTILITY
