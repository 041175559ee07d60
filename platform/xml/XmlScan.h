// A short look over the tags of a document before MSXML sees it, for what it must not see and for what not every
// edition of it refuses.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace keldan {

// Elements nest no deeper than this: readers of the markup may recurse, on stacks that are not theirs.
inline constexpr size_t MAXIMUM_DEPTH = 256;

struct XmlOutline {
    // Where the document begins behind the byte order mark and the XML declaration.
    size_t bodyBegin = 0;
    std::wstring rootName;
    size_t elements = 0;
    // Whether any element declares a namespace.
    bool hasNamespaces = false;
    // Every declaration with a prefix, as SelectionNamespaces takes it; the first URI of a prefix counts.
    std::wstring namespaceList;
};

// Throws result_error with 0x8000012D where the text has a document type definition, nests too deep, uses a prefix that
// is not declared, or breaks the rules of names with colons. Whether it is well-formed otherwise is for MSXML to say.
XmlOutline ScanXml(std::wstring_view text);

} // namespace keldan
