// A node of an XmlDocument; valid until the document is changed.
#pragma once

#include "common/com/com_ptr.h"
#include "common/xml/msxml.h"

#include <string>

namespace keldan {

class XmlNode {
  public:
    explicit XmlNode(vorna::com_ptr<IXMLDOMNode> node);

    DOMNodeType Type() const { return type_; }
    // Whether this is the document's root element.
    bool IsRoot() const;
    std::wstring LocalName() const;
    std::wstring NamespaceUri() const;
    // The value of an attribute, or the text in an element; references are resolved.
    std::wstring Text() const;

    IXMLDOMNode* get() const { return node_.get(); }

  private:
    vorna::com_ptr<IXMLDOMNode> node_;
    DOMNodeType type_ = NODE_INVALID;
};

} // namespace keldan
