// Checks a document's tags before MSXML parses it: rejects what MSXML must not receive (document types, deep nesting)
// and errors that some of its versions accept.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace keldan {

// The largest depth of elements: parsers of the markup may be recursive.
inline constexpr size_t MAXIMUM_DEPTH = 256;

struct XmlOutline {
    // Where the document begins, after the byte order mark and the XML declaration.
    size_t bodyBegin = 0;
    std::wstring rootName;
    size_t elements = 0;
    // Whether any element declares a namespace.
    bool hasNamespaces = false;
    // All declarations with a prefix, in the form of SelectionNamespaces; of several URIs of one prefix, the first.
    std::wstring namespaceList;
};

// Throws result_error with 0x8000012D if the text has a document type definition, nests too deep, uses an undeclared
// prefix, or breaks the rules for names with colons. Whether it is well-formed otherwise is checked by MSXML.
XmlOutline ScanXml(std::wstring_view text);

} // namespace keldan
