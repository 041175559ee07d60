#include "platform/xml/XmlDocument.h"

#include "common/com/bstr.h"
#include "common/com/result_error.h"
#include "common/com/scope_exit.h"
#include "common/xml/XmlCharacters.h"
#include "common/xml/XmlEscape.h"
#include "platform/xml/Msxml.h"
#include "platform/xml/XPathCheck.h"

#include <utility>

namespace keldan {

using vorna::bstr;
using vorna::com_ptr;
using vorna::throw_if_failed;

namespace {

VARIANT Reference(IUnknown* object) {
    VARIANT value{};
    value.vt = VT_UNKNOWN;
    value.punkVal = object;
    return value;
}

// Inserted markup may begin with an XML declaration, which is not part of the content.
std::wstring_view WithoutDeclaration(std::wstring_view markup) {
    if (!markup.starts_with(L"<?xml") || markup.size() < 6 || !vorna::IsXmlSpace(markup[5]))
        return markup;
    const size_t end = markup.find(L"?>");
    return end == markup.npos ? markup : markup.substr(end + 2);
}

// The declaration must be well-formed; an encoding that MSXML does not know is accepted.
void CheckDeclaration(std::wstring_view head) {
    if (head.starts_with(L'\xFEFF'))
        head.remove_prefix(1);
    if (head.empty())
        return;
    std::wstring declaration(head);
    if (const size_t name = declaration.find(L"encoding"); name != declaration.npos) {
        const size_t quote = declaration.find_first_of(L"\"'", name);
        const size_t end = quote == declaration.npos ? quote : declaration.find(declaration[quote], quote + 1);
        if (end == declaration.npos)
            throw vorna::result_error(vorna::RESULT_XML_MALFORMED);
        declaration.erase(name, end + 1 - name);
    }
    (void)ParseXml(declaration + L"<r/>");
}

std::wstring Xml(IXMLDOMNode* node) {
    bstr xml;
    throw_if_failed(node->get_xml(xml.put()));
    // MSXML writes every line end as two characters; a carriage return of the document itself is a reference.
    std::wstring text;
    text.reserve(xml.view().size());
    const auto view = xml.view();
    for (size_t i = 0; i < view.size(); ++i)
        if (view[i] != L'\r' || i + 1 == view.size() || view[i + 1] != L'\n')
            text += view[i];
    return text;
}

} // namespace

XmlDocument::XmlDocument(std::wstring_view text) : outline_(ScanXml(text)) {
    CheckDeclaration(text.substr(0, outline_.bodyBegin));
    text_ = text.substr(outline_.bodyBegin);
    (void)Parsed();
}

IXMLDOMDocument2* XmlDocument::Parsed() {
    if (!dom_) {
        selectionNamespaces_.clear();
        emptyText_.reset();
        dom_ = ParseXml(text_);
    }
    return dom_.get();
}

std::vector<XmlNode> XmlDocument::Select(std::wstring_view xpath) {
    return SelectWith(xpath, outline_.namespaceList);
}

std::vector<XmlNode> XmlDocument::Select(std::wstring_view xpath, const PrefixMap& prefixes) {
    std::wstring namespaces;
    for (const auto& [prefix, uri] : prefixes) {
        const wchar_t quote = uri.find(L'\'') == uri.npos ? L'\'' : L'"';
        namespaces.append(namespaces.empty() ? L"xmlns:" : L" xmlns:").append(prefix).append(L"=");
        namespaces.append(1, quote).append(uri).append(1, quote);
    }
    return SelectWith(xpath, namespaces);
}

std::vector<XmlNode> XmlDocument::SelectWith(std::wstring_view xpath, const std::wstring& namespaces) {
    CheckXPath(xpath, outline_.elements);
    IXMLDOMDocument2* document = Parsed();
    if (namespaces != selectionNamespaces_ && xpath.find(L':') != xpath.npos) {
        const bstr value(namespaces);
        VARIANT property{};
        property.vt = VT_BSTR;
        property.bstrVal = value.get();
        // If a declaration is not accepted, the paths that use it fail.
        (void)document->setProperty(bstr(L"SelectionNamespaces").get(), property);
        selectionNamespaces_ = namespaces;
    }
    com_ptr<IXMLDOMNodeList> list;
    const HRESULT result = document->selectNodes(bstr(xpath).get(), list.put());
    if (result == E_OUTOFMEMORY)
        throw vorna::result_error(result);
    long count = 0;
    if (result != S_OK || !list || FAILED(list->get_length(&count)))
        throw vorna::result_error(E_INVALIDARG);
    std::vector<XmlNode> nodes;
    nodes.reserve(static_cast<size_t>(count));
    for (long i = 0; i < count; ++i) {
        com_ptr<IXMLDOMNode> node;
        throw_if_failed(list->get_item(i, node.put()));
        nodes.emplace_back(std::move(node));
    }
    return nodes;
}

// Some versions of MSXML indent elements that contain no text. With a text node in front, even an empty one, everything
// below is mixed content and is written as it is.
std::wstring XmlDocument::UnindentedXml(IXMLDOMNode* node) {
    com_ptr<IXMLDOMNode> first;
    throw_if_failed(node->get_firstChild(first.put()));
    if (!first || XmlNode(first).Type() == NODE_TEXT)
        return Xml(node);
    if (!emptyText_) {
        com_ptr<IXMLDOMText> created;
        throw_if_failed(Parsed()->createTextNode(bstr(std::wstring_view()).get(), created.put()));
        emptyText_ = created.try_as<IXMLDOMNode>();
    }
    throw_if_failed(node->insertBefore(emptyText_.get(), Reference(first.get()), nullptr));
    const vorna::scope_exit removed([&] { node->removeChild(emptyText_.get(), nullptr); });
    return Xml(node);
}

std::wstring XmlDocument::Markup(const XmlNode& node) {
    if (node.Type() == NODE_DOCUMENT)
        return text_;
    if (node.Type() != NODE_ELEMENT)
        return Xml(node.get());
    if (!outline_.hasNamespaces || node.IsRoot())
        return UnindentedXml(node.get());
    // A copy has the declarations that it needs; not every version writes them for the node itself.
    com_ptr<IXMLDOMNode> copy;
    throw_if_failed(node.get()->cloneNode(VARIANT_TRUE, copy.put()));
    return UnindentedXml(copy.get());
}

std::wstring XmlDocument::SerializedDocument() {
    std::wstring text;
    com_ptr<IXMLDOMNode> child;
    throw_if_failed(Parsed()->get_firstChild(child.put()));
    while (child) {
        text += XmlNode(child).Type() == NODE_ELEMENT ? UnindentedXml(child.get()) : Xml(child.get());
        com_ptr<IXMLDOMNode> next;
        throw_if_failed(child->get_nextSibling(next.put()));
        child = std::move(next);
    }
    return text;
}

bool XmlDocument::IsContent(std::wstring_view markup) const {
    std::wstring wrapped = L"<r ";
    wrapped.append(outline_.namespaceList).append(L">").append(markup).append(L"</r>");
    try {
        (void)ScanXml(wrapped);
        (void)ParseXml(wrapped);
        return true;
    } catch (const vorna::result_error& error) {
        if (error.result() != vorna::RESULT_XML_MALFORMED)
            throw;
        return false;
    }
}

std::wstring XmlDocument::AsContent(std::wstring_view markup) const {
    markup = WithoutDeclaration(markup);
    if (markup.empty() || IsContent(markup))
        return std::wstring(markup);
    std::wstring escaped = vorna::EscapeXml(markup);
    if (markup.find(L'<') != markup.npos || !IsContent(escaped))
        throw vorna::result_error(vorna::RESULT_XML_MALFORMED);
    return escaped;
}

std::wstring XmlDocument::AsAttributeValue(std::wstring_view value) const {
    // References in the value are resolved if all of them can be.
    const std::wstring markup =
        value.find(L'<') == value.npos && IsContent(value) ? std::wstring(value) : vorna::EscapeXml(value);
    XmlDocument holder(L"<r>" + markup + L"</r>");
    return holder.Select(L"/r").at(0).Text();
}

void XmlDocument::ChangeAttribute(const XmlNode& attribute, std::wstring_view value) {
    if (!value.empty()) {
        throw_if_failed(attribute.get()->put_text(bstr(AsAttributeValue(value)).get()));
    } else {
        com_ptr<IXMLDOMNodeList> list;
        throw_if_failed(attribute.get()->selectNodes(bstr(L"..").get(), list.put()));
        com_ptr<IXMLDOMNode> owner;
        throw_if_failed(list->get_item(0, owner.put()));
        com_ptr<IXMLDOMNamedNodeMap> attributes;
        if (!owner || FAILED(owner->get_attributes(attributes.put())) || !attributes)
            throw vorna::result_error(E_INVALIDARG);
        // The node is removed, but not freed: the caller still refers to it.
        com_ptr<IXMLDOMNode> removed;
        throw_if_failed(attributes->removeQualifiedItem(bstr(attribute.LocalName()).get(),
                                                        bstr(attribute.NamespaceUri()).get(), removed.put()));
    }
    std::wstring changed = SerializedDocument();
    outline_ = ScanXml(changed);
    text_ = std::move(changed);
}

std::wstring XmlDocument::MarkPlace(const XmlNode& node, ChangeMode mode, size_t& place, size_t& length) {
    // A text that does not occur in the document.
    std::wstring mark = L"here";
    for (int i = 0; text_.find(mark) != text_.npos; ++i)
        mark = L"here" + std::to_wstring(i);
    com_ptr<IXMLDOMComment> comment;
    throw_if_failed(Parsed()->createComment(bstr(mark).get(), comment.put()));
    if (mode == ChangeMode::Append) {
        throw_if_failed(node.get()->appendChild(comment.get(), nullptr));
    } else if (mode == ChangeMode::Insert) {
        com_ptr<IXMLDOMNode> first;
        throw_if_failed(node.get()->get_firstChild(first.put()));
        if (first)
            throw_if_failed(node.get()->insertBefore(comment.get(), Reference(first.get()), nullptr));
        else
            throw_if_failed(node.get()->appendChild(comment.get(), nullptr));
    } else {
        com_ptr<IXMLDOMNode> parent;
        throw_if_failed(node.get()->get_parentNode(parent.put()));
        if (!parent)
            throw vorna::result_error(E_INVALIDARG);
        throw_if_failed(parent->replaceChild(comment.get(), node.get(), nullptr));
    }
    std::wstring marked = SerializedDocument();
    mark = L"<!--" + mark + L"-->";
    place = marked.find(mark);
    length = mark.size();
    if (place == marked.npos)
        throw vorna::result_error(E_UNEXPECTED);
    return marked;
}

void XmlDocument::Change(const XmlNode& node, std::wstring_view markup, ChangeMode mode) {
    // After a failure, or if the parsed form is older than the text, the text is parsed again when it is needed.
    vorna::scope_exit outdated([&] { dom_.reset(); });
    if (node.Type() == NODE_ATTRIBUTE && mode == ChangeMode::Replace) {
        ChangeAttribute(node, markup);
        outdated.release();
        return;
    }
    if (mode != ChangeMode::Replace && node.Type() != NODE_ELEMENT && node.Type() != NODE_DOCUMENT)
        throw vorna::result_error(E_INVALIDARG);
    const std::wstring content = AsContent(markup);
    if (node.Type() == NODE_DOCUMENT && mode == ChangeMode::Replace) {
        *this = XmlDocument(content);
        return;
    }
    com_ptr<IXMLDOMNode> parent;
    const bool outside = node.Type() == NODE_DOCUMENT ||
                         (mode == ChangeMode::Replace && node.get()->get_parentNode(parent.put()) == S_OK &&
                          XmlNode(parent).Type() == NODE_DOCUMENT);
    size_t place = 0;
    size_t length = 0;
    std::wstring changed = MarkPlace(node, mode, place, length);
    changed.replace(place, length, content);
    XmlOutline outline = ScanXml(changed);
    // Inside an element, well-formed content keeps the document well-formed. The meaning of prefixes, and which nodes
    // are allowed beside the root element, can only be checked in the whole document.
    if (outside || outline_.hasNamespaces)
        (void)ParseXml(changed);
    outline_ = std::move(outline);
    text_ = std::move(changed);
}

} // namespace keldan
