#include "platform/xml/XmlNode.h"

#include "common/com/bstr.h"
#include "common/com/result_error.h"

#include <utility>

namespace keldan {

namespace {

// MSXML returns S_FALSE if there is no such text.
std::wstring Read(IXMLDOMNode* node, HRESULT (STDMETHODCALLTYPE IXMLDOMNode::*get)(BSTR*)) {
    vorna::bstr text;
    vorna::throw_if_failed((node->*get)(text.put()));
    return text.str();
}

} // namespace

XmlNode::XmlNode(vorna::com_ptr<IXMLDOMNode> node) : node_(std::move(node)) {
    if (!node_ || FAILED(node_->get_nodeType(&type_)))
        throw vorna::result_error(E_FAIL);
}

bool XmlNode::IsRoot() const {
    if (type_ != NODE_ELEMENT)
        return false;
    vorna::com_ptr<IXMLDOMNode> parent;
    return node_->get_parentNode(parent.put()) == S_OK && XmlNode(parent).Type() == NODE_DOCUMENT;
}

std::wstring XmlNode::LocalName() const {
    return Read(node_.get(), &IXMLDOMNode::get_baseName);
}

std::wstring XmlNode::NamespaceUri() const {
    return Read(node_.get(), &IXMLDOMNode::get_namespaceURI);
}

std::wstring XmlNode::Text() const {
    return Read(node_.get(), &IXMLDOMNode::get_text);
}

} // namespace keldan
