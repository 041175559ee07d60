// A walk over the markup of a document's text, for what can be decided without parsing the document.
//
// Exact for well-formed text without a document type definition. On any other text the walk may end early or return
// pieces that are not markup; it never reads outside the text. The views that it returns point into the text.
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <string_view>

namespace vorna {

enum class XmlMarkup { StartTag, EmptyTag, EndTag, Comment, Instruction, Data };

class XmlMarkupWalk {
  public:
    explicit XmlMarkupWalk(std::wstring_view text) : text_(text) {}

    // Moves to the next piece of markup; character data is between the pieces. False at the end.
    bool Next();
    XmlMarkup Kind() const { return kind_; }
    bool OpensElement() const { return kind_ == XmlMarkup::StartTag || kind_ == XmlMarkup::EmptyTag; }
    // The range of the piece, from its "<" to after its ">".
    std::size_t begin() const { return begin_; }
    std::size_t end() const { return end_; }
    std::wstring_view Markup() const { return text_.substr(begin_, end_ - begin_); }

  private:
    bool FindTagEnd();

    std::wstring_view text_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    XmlMarkup kind_ = XmlMarkup::StartTag;
};

// The attributes of one start tag, in order.
class XmlAttributeWalk {
  public:
    // markup: a whole start tag.
    explicit XmlAttributeWalk(std::wstring_view markup);

    bool Next();
    std::wstring_view Name() const { return name_; }
    // As written, with its quotes and references.
    std::wstring_view Value() const { return value_; }
    // The range of the attribute in the markup, from the blank before it to after its closing quote.
    std::size_t begin() const { return begin_; }
    std::size_t end() const { return end_; }

  private:
    std::wstring_view markup_;
    std::wstring_view name_;
    std::wstring_view value_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
};

// Whether the text has a document type definition.
bool HasDoctype(std::wstring_view xml);

// A small document that declares these prefixes as xml does first; empty if xml declares none of them. prefixes is a
// copy because those that are found are removed.
std::wstring NamespaceDeclarations(std::wstring_view xml, std::set<std::wstring_view> prefixes);

} // namespace vorna
