// Escaping of text for markup.
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

// Appends the text so that a parser reads the same text back. Characters that XML does not allow are kept, so that a
// parser rejects the document instead of reading a different text.
void AppendEscaped(std::wstring& markup, std::wstring_view text, XmlContext context = XmlContext::Content);

// The escaped text.
std::wstring EscapeXml(std::wstring_view text, XmlContext context = XmlContext::Content);

// The text without characters that XML does not allow: most control characters, unpaired surrogates.
std::wstring DropForbidden(std::wstring_view text);

} // namespace vorna
