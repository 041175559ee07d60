// Helpers that several rooms share: directories, service objects, sparse documents.
#pragma once

#include "common/CPWStringBuffer.h"
#include "common/com_ptr.h"

#include <string>
#include <string_view>

struct IXMLDOMDocument2;
struct IXMLDOMNode;

namespace VORNAUTILITY {

// Directories. Paths are narrow (multibyte) strings of at most 512 bytes.

// Creates every directory along the path, open to everyone. 1 on success, 0 where a piece begins or ends with ".",
// holds a "," or a character that no file name has, or cannot be created. An existing directory is no error.
int CreateDirectories(const char* path);
// Creates one directory; true also where it exists already.
bool SCCreateDirectory(const char* path);
// Deletes the directory and what is in it, read-only files included; without recurse it stops at a subdirectory.
bool DeleteDirectory(const char* path, bool recurse);
bool IsDots(const char* name);

// The folder of the component's own file, with the backslash at its end, found by its ProgID in the registry; empty
// where it is not registered.
std::wstring GetComponentDirectory();

// The service object that a service document describes; the caller owns the reference. On failure 0x80004005 and a
// text in errorText.
[[nodiscard]] HRESULT GetServiceObject(std::wstring_view serviceXml, vorna::com_ptr<IUnknown>& service,
                                       vorna::CPWStringBuffer& errorText);

// Sparse documents.

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
