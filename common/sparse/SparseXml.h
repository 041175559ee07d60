// Sparse documents: the nodes that an XPath selects, under copies of their ancestors.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>

struct IXMLDOMDocument2;
struct IXMLDOMNode;

namespace VORNAUTILITY {

// The nodes that xpath selects in xml, each whole, under copies of their ancestors without their other children; one
// copy of each ancestor, everything in document order, white space as in the source.
// - Prefixes in xpath are those declared in xml, the first in document order where one is declared twice.
// - A node inside another selected node is given once, with it.
// - An attribute is given by its owner element without content, with all its attributes.
// - The document node ("/") gives the whole root element. The root element itself, or a comment beside it, is given
// only
//   where nothing else, not even an XML declaration, stands at the top.
// - Line ends are single where xml has no carriage return, and two characters otherwise.
// - Refused as not well-formed: document type definitions. Refused as XPath: more than 8,192 characters, or brackets
//   nested more than 100 deep.
// result is empty where nothing is selected or anything fails (logged). xml and xpath may be views of result.
// Time is linear in xml and result.
void GetSparseXMLFromXPath(std::wstring_view xml, std::wstring_view xpath, std::wstring& result);
// Copies one selected node and those of its ancestors that target lacks; attributes and the document node as above.
// Source and target get "idNode" attributes as marks, so the source must have none of its own. A node inside one that
// was mounted before is mounted again: this function cannot know. S_FALSE: the node could not be mounted (logged), and
// the target is as far as it was built. E_POINTER for null.
HRESULT MountDocument(IXMLDOMNode* selected, IXMLDOMDocument2* target);
// Removes every "idNode" attribute from the target.
void RemoveIdNode(IXMLDOMDocument2* target);

} // namespace VORNAUTILITY
