// Fills an XmlDocument from its text. Not recursive: the stack does not grow with the document.
#pragma once

#include "platform/xml/XmlDocument.h"

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace keldan {

class XmlParser {
  public:
    enum class Scope { Document, Content };

    explicit XmlParser(XmlDocument& document, Scope scope);
    // Throws failure.
    void Parse();

    // The character that a reference such as "amp" or "#xA" (without & and ;) stands for; 0 where it stands for none.
    static unsigned long ResolveReference(std::wstring_view reference);

  private:
    [[noreturn]] static void Malformed();
    bool at(std::wstring_view text) const { return text_.compare(position_, text.size(), text) == 0; }
    wchar_t peek() const { return position_ < text_.size() ? text_[position_] : L'\0'; }
    bool skipSpace();
    void skipPast(std::wstring_view mark);
    std::uint32_t scanName();
    void checkReferences(size_t begin, size_t end) const;

    void checkCharacters() const;
    void parseDeclaration();
    void parseText();
    void parseComment();
    void parseInstruction();
    void parseStartTag();
    void parseEndTag();
    void parseAttribute();
    void bindNamespaces(node_index element);
    void resolve(xml_node& node);
    void checkUnique(node_index first, node_index end) const;
    void closeElement();

    node_index add(NodeKind kind, size_t begin);
    void setName(node_index node, std::uint32_t begin, std::uint32_t length);
    std::uint32_t intern(std::wstring uri);

    struct binding {
        node_index element;
        std::wstring_view prefix;
    };

    XmlDocument& document_;
    const std::wstring& text_;
    std::vector<xml_node>& nodes_;
    const bool content_;
    size_t position_ = 0;
    std::vector<node_index> open_;
    // What each prefix means here (the innermost last), and who declared it, to undo it at the end tag.
    std::unordered_map<std::wstring_view, std::vector<std::uint32_t>> bound_;
    std::vector<binding> bindings_;
    std::unordered_map<std::wstring, std::uint32_t> spaces_;
};

} // namespace keldan
