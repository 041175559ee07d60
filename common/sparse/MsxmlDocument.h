// The MSXML operations that sparse documents need.
#pragma once

#include "common/com/bstr.h"
#include "common/com/com_ptr.h"
#include "common/xml/msxml.h"

#include <string_view>

namespace vorna {

// Points to the text without owning it: do not clear it, and do not use it after the text has changed.
VARIANT VariantOf(const bstr& text);

// Creates an empty document that does not validate and loads nothing external.
[[nodiscard]] HRESULT CreateDocument(com_ptr<IXMLDOMDocument2>& document);

// declarations: as the property expects them, separated by blanks.
[[nodiscard]] bool SetSelectionNamespaces(IXMLDOMDocument2* document, std::wstring_view declarations);

// False if xml is not well-formed, has a document type definition or holds a zero character. A byte order mark and the
// encoding in the XML declaration are ignored.
[[nodiscard]] bool LoadDocument(IXMLDOMDocument2* document, std::wstring_view xml);

// Null if the node is not a document, or a document without a root element.
com_ptr<IXMLDOMElement> RootElement(IXMLDOMNode* document);

// The markup of the root element, not indented and with two characters for each line end; empty without a root
// element. Adds an empty text node to the document.
bstr RootMarkup(IXMLDOMNode* document);

// False if the node has siblings directly below the document (logged): copied alone, it would lose them.
bool MayStandAlone(IXMLDOMNode* node);

} // namespace vorna
