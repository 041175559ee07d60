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

// The nodes that xpath selects in xml, each whole, under copies of their ancestors without their other children.
// Prefixes in xpath are those declared in xml. result is empty where nothing is selected or anything fails (logged).
// Time is linear in xml and result.
void GetSparseXMLFromXPath(std::wstring_view xml, std::wstring_view xpath, std::wstring& result);
// Copies one selected node and those of its ancestors that target lacks. S_FALSE: the node could not be mounted.
HRESULT MountDocument(IXMLDOMNode* selected, IXMLDOMDocument2* target);
// Removes every "idNode" attribute from the target.
void RemoveIdNode(IXMLDOMDocument2* target);

} // namespace VORNAUTILITY
