// An XML document in memory, backed by MSXML: loaded, selected from by XPath 1.0, read as text or markup, changed.
//
// The platform's components share this one class; nobody else talks to MSXML's documents. It keeps the document's text,
// and a parsed form of it only while somebody asks by path, so what nobody changed comes back letter for letter and
// several changes in a row parse little. After a change the text is MSXML's: attributes in double quotes, empty
// elements as <name/>, no CDATA section or white space gained or lost. One thread at a time.
#pragma once

#include "common/com/com_ptr.h"
#include "common/xml/msxml.h"
#include "platform/xml/XmlNode.h"
#include "platform/xml/XmlScan.h"

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace keldan {

// What each prefix of a path means.
using PrefixMap = std::map<std::wstring, std::wstring, std::less<>>;

// As the modes of the accessor's Set.
enum class ChangeMode : long { Insert = 1, Append = 2, Replace = 3 };

class XmlDocument {
  public:
    // Parses a whole document; throws result_error with 0x8000012D where it is not well-formed, has a document type
    // definition or nests too deep. A byte order mark and the encoding of an XML declaration are passed over: the
    // text has been decoded.
    explicit XmlDocument(std::wstring_view text);

    // The document without its XML declaration.
    const std::wstring& Text() const { return text_; }
    // As written, with its prefix.
    const std::wstring& RootName() const { return outline_.rootName; }
    // Every declaration with a prefix, as SelectionNamespaces takes it; the first URI of a prefix counts.
    const std::wstring& NamespaceList() const { return outline_.namespaceList; }

    // The nodes in document order. Prefixes mean what namespaceList() says, or what the map says. Throws result_error:
    // E_INVALIDARG where the path is none or selects no nodes by its nature, ERROR_NOT_ENOUGH_QUOTA's result where it
    // would take too long.
    std::vector<XmlNode> Select(std::wstring_view xpath);
    std::vector<XmlNode> Select(std::wstring_view xpath, const PrefixMap& prefixes);

    // The node's markup; an element gets the namespace declarations of its ancestors that it needs to stand alone.
    // The document node gives the whole document without its XML declaration.
    std::wstring Markup(const XmlNode& node);

    // Changes the document at a node that Select gave. Inserted markup becomes the first child; empty markup with
    // Replace deletes the node; the markup for an attribute is its new value. Markup without a "<" that is not
    // well-formed by itself is taken as plain text. Throws result_error, and has changed nothing then: 0x8000012D where
    // the markup or the document with it is not well-formed, E_INVALIDARG where the node cannot hold children.
    void Change(const XmlNode& node, std::wstring_view markup, ChangeMode mode);

  private:
    IXMLDOMDocument2* Parsed();
    std::vector<XmlNode> SelectWith(std::wstring_view xpath, const std::wstring& namespaces);
    std::wstring UnindentedXml(IXMLDOMNode* node);
    std::wstring SerializedDocument();
    bool IsContent(std::wstring_view markup) const;
    std::wstring AsContent(std::wstring_view markup) const;
    std::wstring AsAttributeValue(std::wstring_view value) const;
    void ChangeAttribute(const XmlNode& attribute, std::wstring_view value);
    // The document's text with a comment at the place of the change, and where that lies.
    std::wstring MarkPlace(const XmlNode& node, ChangeMode mode, size_t& place, size_t& length);

    std::wstring text_;
    XmlOutline outline_;
    // Null after a change, until somebody asks.
    vorna::com_ptr<IXMLDOMDocument2> dom_;
    std::wstring selectionNamespaces_;
    vorna::com_ptr<IXMLDOMNode> emptyText_;
};

} // namespace keldan
