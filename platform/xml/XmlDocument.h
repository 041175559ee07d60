// A parsed XML document that keeps its text: every node knows where it stands in it, so what nobody changed comes back
// letter for letter.
//
// Nodes lie in document order in one array: an element is followed by its attributes and namespace declarations, then
// by its content. Node 0 is the document. Names of nodes are views into the text. A const document may be read by
// several threads.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace keldan {

enum class NodeKind : std::uint8_t { Document, Element, Attribute, Namespace, Text, Comment, Instruction };

using node_index = std::uint32_t;
inline constexpr node_index NO_NODE = 0xFFFFFFFF;

// Offsets count UTF-16 units in the document's text.
struct xml_node {
    NodeKind kind = NodeKind::Document;
    // Elements only: false where the element was written as <name/>.
    bool hasEndTag = false;
    std::uint16_t prefixLength = 0;
    // The whole node as written.
    std::uint32_t begin = 0;
    std::uint32_t end = 0;
    std::uint32_t nameBegin = 0;
    std::uint32_t nameLength = 0;
    // Between the tags, the quotes or the marks.
    std::uint32_t contentBegin = 0;
    std::uint32_t contentEnd = 0;
    node_index parent = NO_NODE;
    // The first node behind this one and all that it holds.
    node_index after = 0;
    // The namespace of the name, an index for NamespaceUri; 0 is none.
    std::uint32_t space = 0;
};

class XmlDocument {
  public:
    // Elements nest no deeper than this: readers of the markup may recurse, on stacks that are not theirs.
    static constexpr size_t MaximumDepth = 256;

    // Parses a whole document; throws failure with 0x8000012D where it is not well-formed, has a document type
    // definition or nests too deep. A byte order mark and the encoding of an XML declaration are passed over: the
    // text has been decoded.
    explicit XmlDocument(std::wstring text);

    // True where the text is what an element may hold: any number of balanced nodes. Prefixes need not be declared.
    static bool IsContent(std::wstring_view text);

    const xml_node& operator[](node_index node) const { return nodes_[node]; }
    node_index size() const { return static_cast<node_index>(nodes_.size()); }
    node_index root() const { return root_; }

    // The document as written, without its XML declaration.
    std::wstring_view text() const { return std::wstring_view(text_).substr(bodyBegin_); }
    // Where an offset of a node lies in text().
    size_t position(std::uint32_t offset) const { return offset - bodyBegin_; }

    std::wstring_view raw(std::uint32_t begin, std::uint32_t end) const {
        return std::wstring_view(text_).substr(begin, end - begin);
    }
    std::wstring_view qualifiedName(node_index node) const;
    std::wstring_view prefix(node_index node) const;
    std::wstring_view localName(node_index node) const;
    const std::wstring& namespaceUri(node_index node) const { return spaces_[nodes_[node].space]; }

    // Appends the value of the node: an attribute's value, the text in an element, references resolved.
    void appendText(node_index node, std::wstring& out) const;
    // Appends the node as written. An element gets the namespace declarations of its ancestors that it needs to stand
    // alone; node 0 gives the whole document without its XML declaration.
    void appendMarkup(node_index node, std::wstring& out) const;

    // Every declaration with a prefix, as SelectionNamespaces takes it; the first URI of a prefix counts.
    std::wstring namespaceList() const;
    // The namespace that namespaceList() gives the prefix; false where it has none.
    bool findPrefix(std::wstring_view prefix, std::uint32_t& space) const;
    // The index of a namespace; one that no node has where the document does not use it.
    std::uint32_t findNamespace(std::wstring_view uri) const;

  private:
    friend class XmlParser;
    XmlDocument() = default;

    void appendDecoded(std::wstring_view raw, bool attribute, std::wstring& out) const;

    std::wstring text_;
    std::uint32_t bodyBegin_ = 0;
    node_index root_ = NO_NODE;
    std::vector<xml_node> nodes_;
    // 0 none, 1 that of xml:, 2 that of xmlns:.
    std::vector<std::wstring> spaces_;
    // Prefixed declarations, in document order, the first of each prefix.
    std::vector<node_index> declarations_;
};

} // namespace keldan
