// Sparse documents: the nodes that an XPath selects, under copies of their ancestors.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>

struct IXMLDOMDocument2;
struct IXMLDOMNode;

namespace VORNAUTILITY {

// The nodes that xpath selects in xml, with all their content, under copies of their ancestors without the ancestors'
// other children; one copy of each ancestor, everything in document order, white space as in the source.
// - Prefixes in xpath are those declared in xml; if a prefix is declared twice, its first declaration counts.
// - A selected node inside another selected node appears once, as part of it.
// - A selected attribute yields its owner element without content but with all its attributes.
// - The document node ("/") yields the root element with all its content. A selected root element is returned only if
//   there is no XML declaration, comment or processing instruction beside it; these are never returned.
// - Line ends are one character, or two if xml has a carriage return.
// - A byte order mark and the encoding in the XML declaration are ignored, since xml is text already.
// - Refused as not well-formed: document type definitions. Refused as XPath: more than 8,192 characters, brackets
//   nested more than 100 deep, and XPaths that would take minutes (XPathCost.h).
// result is empty if nothing is selected or anything fails (logged). xml and xpath may be views of result.
// Except for the evaluation of xpath, the time is linear in the sizes of xml and result.
void GetSparseXMLFromXPath(std::wstring_view xml, std::wstring_view xpath, std::wstring& result);

// Copies one selected node into target, with those of its ancestors that target lacks; attributes and the document node
// as above. Source and target get "idNode" attributes as marks, so the source must not have such attributes. A node
// inside a node that was mounted before is mounted again. The time grows with the number of ancestors and of their
// siblings in target.
// S_FALSE: the node could not be mounted (logged); target keeps what was copied so far. E_POINTER for null.
[[nodiscard]] HRESULT MountDocument(IXMLDOMNode* selected, IXMLDOMDocument2* target);

// Removes every "idNode" attribute from target; null is ignored.
void RemoveIdNode(IXMLDOMDocument2* target);

} // namespace VORNAUTILITY
