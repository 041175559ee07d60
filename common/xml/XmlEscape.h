// Foreign text on its way into markup.
#pragma once

#include <string>
#include <string_view>

namespace vorna {

enum class XmlContext {
    // Between tags.
    Content,
    // An attribute's value between double quotes.
    Attribute
};

// Appends the text so that a parser reads the same text back. Characters that no document can hold stay as they are: a
// parser refuses the document, which nobody can take for the text that was meant.
void AppendEscaped(std::wstring& markup, std::wstring_view text, XmlContext context = XmlContext::Content);

// The same as a text of its own.
std::wstring EscapeXml(std::wstring_view text, XmlContext context = XmlContext::Content);

// The text without the characters that no document can hold: most control characters, halves of surrogate pairs.
std::wstring DropForbidden(std::wstring_view text);

} // namespace vorna
