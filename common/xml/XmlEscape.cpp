#include "common/xml/XmlEscape.h"

#include "common/xml/XmlCharacters.h"

namespace vorna {

namespace {

// The reference that replaces the character in markup; null if it needs none.
const wchar_t* ReferenceTo(wchar_t c, XmlContext context) {
    const bool attribute = context == XmlContext::Attribute;
    switch (c) {
    case L'&':
        return L"&amp;";
    case L'<':
        return L"&lt;";
    case L'>':
        return L"&gt;";
    // Parsers convert carriage returns to line feeds in content, and these three characters to blanks in attributes.
    case L'\r':
        return L"&#13;";
    case L'\n':
        return attribute ? L"&#10;" : nullptr;
    case L'\t':
        return attribute ? L"&#9;" : nullptr;
    case L'"':
        return attribute ? L"&quot;" : nullptr;
    default:
        return nullptr;
    }
}

bool IsPair(std::wstring_view text) {
    return text.size() >= 2 && text[0] >= 0xD800 && text[0] <= 0xDBFF && text[1] >= 0xDC00 && text[1] <= 0xDFFF;
}

} // namespace

void AppendEscaped(std::wstring& markup, std::wstring_view text, XmlContext context) {
    markup.reserve(markup.size() + text.size());
    for (const wchar_t c : text) {
        if (const wchar_t* reference = ReferenceTo(c, context))
            markup += reference;
        else
            markup += c;
    }
}

std::wstring EscapeXml(std::wstring_view text, XmlContext context) {
    std::wstring markup;
    AppendEscaped(markup, text, context);
    return markup;
}

std::wstring DropForbidden(std::wstring_view text) {
    std::wstring kept;
    for (size_t i = 0; i < text.size(); ++i) {
        if (IsPair(text.substr(i)))
            kept.append(text, i++, 2);
        else if (IsXmlCharacter(text[i]))
            kept += text[i];
    }
    return kept;
}

} // namespace vorna
