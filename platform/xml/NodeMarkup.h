// Selected nodes in the form of the platform's answers.
#pragma once

#include "platform/xml/XmlDocument.h"

#include <string>

namespace keldan {

// Appends a node of the document: elements, comments and processing instructions as they are, with the namespace
// declarations that they need; the document node as the whole document; an attribute as <Attribute name="..."
// namespace="...">value</Attribute> (no namespace if it has none), text as <Text>text</Text>.
void AppendNode(XmlDocument& document, const XmlNode& node, std::wstring& markup);

} // namespace keldan
