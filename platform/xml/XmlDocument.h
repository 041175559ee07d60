// An XML document in memory, backed by MSXML: parsed, queried by XPath 1.0, read as text or markup, changed.
//
// All components of the platform use this class for MSXML's documents. It keeps the text of the document, and a parsed
// form only while paths are evaluated, so that unchanged text is preserved exactly and several changes in a row parse
// little. After a change the text is MSXML's: attributes in double quotes, empty elements as <name/>, with the same
// CDATA sections and white space. One thread at a time.
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

// The URI of each prefix in a path.
using PrefixMap = std::map<std::wstring, std::wstring, std::less<>>;

// The modes of the accessor's Set.
enum class ChangeMode : long { Insert = 1, Append = 2, Replace = 3 };

class XmlDocument {
  public:
    // Parses a whole document. Throws result_error with 0x8000012D if it is not well-formed, has a document type
    // definition or nests too deep. A byte order mark and the encoding in an XML declaration are ignored, since the
    // text has been decoded.
    explicit XmlDocument(std::wstring_view text);

    // The document without its XML declaration.
    const std::wstring& Text() const { return text_; }
    // As written, with its prefix.
    const std::wstring& RootName() const { return outline_.rootName; }
    // All declarations with a prefix, in the form of SelectionNamespaces; of several URIs of one prefix, the first.
    const std::wstring& NamespaceList() const { return outline_.namespaceList; }

    // The nodes in document order. Prefixes are those of NamespaceList, or of the map. Throws result_error:
    // E_INVALIDARG if the path is not valid or cannot select nodes, 0x80070718 (ERROR_NOT_ENOUGH_QUOTA) if it would
    // take too long.
    std::vector<XmlNode> Select(std::wstring_view xpath);
    std::vector<XmlNode> Select(std::wstring_view xpath, const PrefixMap& prefixes);

    // The node's markup; an element gets the namespace declarations of its ancestors that it needs to stand alone. The
    // document node gives the whole document without its XML declaration.
    std::wstring Markup(const XmlNode& node);

    // Changes the document at a node from Select. Inserted markup becomes the first child; empty markup with Replace
    // deletes the node; for an attribute, the markup is its new value. Markup without a "<" that is not well-formed by
    // itself is plain text. Throws result_error and changes nothing: 0x8000012D if the markup or the changed document
    // is not well-formed, E_INVALIDARG if the node cannot have children.
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
    // The text of the document with a comment at the place of the change, and the position of the comment.
    std::wstring MarkPlace(const XmlNode& node, ChangeMode mode, size_t& place, size_t& length);

    std::wstring text_;
    XmlOutline outline_;
    // Null after a change, until a path is evaluated.
    vorna::com_ptr<IXMLDOMDocument2> dom_;
    std::wstring selectionNamespaces_;
    vorna::com_ptr<IXMLDOMNode> emptyText_;
};

} // namespace keldan
