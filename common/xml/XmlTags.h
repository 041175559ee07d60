// A walk over the markup of a document's text, for questions that do not need the document in memory.
//
// Exact for well-formed text without a document type definition. On any other text the walk ends early, or gives markup
// that is none; it never reads outside the text. Views given out point into the text.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vorna {

enum class XmlMarkup { StartTag, EmptyTag, EndTag, Comment, Instruction, Data };

class XmlMarkupWalk {
  public:
    explicit XmlMarkupWalk(std::wstring_view text) : text_(text) {}

    // The next piece of markup; text is what lies between the pieces. False at the end.
    bool Next();
    XmlMarkup Kind() const { return kind_; }
    bool OpensElement() const { return kind_ == XmlMarkup::StartTag || kind_ == XmlMarkup::EmptyTag; }
    // Where the piece lies, from its "<" to behind its ">".
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
    // As it stands in the text: quotes and references included.
    std::wstring_view Value() const { return value_; }
    // Where the attribute lies in the markup, from the blank before it to behind its closing quote.
    std::size_t begin() const { return begin_; }
    std::size_t end() const { return end_; }
    bool IsNamespace() const { return name_ == L"xmlns" || name_.starts_with(L"xmlns:"); }

  private:
    std::wstring_view markup_;
    std::wstring_view name_;
    std::wstring_view value_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
};

// Whether a document type definition stands before the root element.
bool HasDoctype(std::wstring_view xml);

// A small document with the prefixed namespace declarations of xml in their order, each spelling once; empty where xml
// has none.
std::wstring NamespaceDeclarations(std::wstring_view xml);

// Whether a namespace is declared on another element than the root.
bool DeclaresBelowRoot(std::wstring_view xml);

// The text with characters beyond ASCII in attribute values as themselves: some implementations of MSXML write them as
// hexadecimal references.
std::wstring PlainAttributes(std::wstring text);

// Appends MSXML's text, in which every line end is two characters; with keepReturns as it is, otherwise with one.
void AppendLines(std::wstring& text, std::wstring_view piece, bool keepReturns);

} // namespace vorna
