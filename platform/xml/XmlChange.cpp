#include "platform/xml/XmlChange.h"

#include "platform/xml/Failure.h"
#include "platform/xml/XmlCharacters.h"

namespace keldan {

namespace {

// Plain text as markup; quote is 0 outside attributes.
std::wstring Escape(std::wstring_view text, wchar_t quote) {
    std::wstring escaped;
    for (wchar_t c : text) {
        if (c == L'&')
            escaped += L"&amp;";
        else if (c == L'<')
            escaped += L"&lt;";
        else if (c == L'>' && !quote)
            escaped += L"&gt;";
        else if (quote && c == quote)
            escaped += quote == L'"' ? L"&quot;" : L"&apos;";
        else
            escaped += c;
    }
    return escaped;
}

// An XML declaration before inserted markup says nothing about the document around it.
std::wstring_view WithoutDeclaration(std::wstring_view markup) {
    if (!markup.starts_with(L"<?xml") || markup.size() < 6 || !IsXmlSpace(markup[5]))
        return markup;
    const size_t end = markup.find(L"?>");
    return end == markup.npos ? markup : markup.substr(end + 2);
}

std::wstring AsContent(std::wstring_view markup) {
    markup = WithoutDeclaration(markup);
    if (XmlDocument::IsContent(markup))
        return std::wstring(markup);
    if (markup.find(L'<') != markup.npos)
        throw failure{vorna::RESULT_XML_MALFORMED};
    return Escape(markup, 0);
}

std::wstring AsAttributeValue(std::wstring_view value, wchar_t quote) {
    const bool references = value.find(L'<') == value.npos && XmlDocument::IsContent(value);
    std::wstring escaped = references ? std::wstring(value) : Escape(value, quote);
    if (!references)
        return escaped;
    std::wstring quoted;
    for (wchar_t c : escaped)
        if (c == quote)
            quoted += quote == L'"' ? L"&quot;" : L"&apos;";
        else
            quoted += c;
    return quoted;
}

// The text with the part between two offsets of the document replaced.
std::wstring Spliced(const XmlDocument& document, std::uint32_t begin, std::uint32_t end, std::wstring_view middle) {
    const std::wstring_view whole = document.text();
    std::wstring changed;
    changed.reserve(whole.size() + middle.size());
    changed.append(whole.substr(0, document.position(begin)));
    changed.append(middle);
    changed.append(whole.substr(document.position(end)));
    return changed;
}

std::wstring ReplacedAttribute(const XmlDocument& document, const xml_node& attribute, std::wstring_view value) {
    if (!value.empty()) {
        const wchar_t quote = document.raw(attribute.contentEnd, attribute.end)[0];
        return Spliced(document, attribute.contentBegin, attribute.contentEnd, AsAttributeValue(value, quote));
    }
    // The blank that set it off goes too.
    std::uint32_t begin = attribute.begin;
    while (IsXmlSpace(document.raw(begin - 1, begin)[0]))
        --begin;
    return Spliced(document, begin, attribute.end, {});
}

} // namespace

std::wstring ChangedText(const XmlDocument& document, node_index index, std::wstring_view markup, ChangeMode mode) {
    const xml_node& node = document[index];
    if (mode == ChangeMode::Replace) {
        if (node.kind == NodeKind::Attribute)
            return ReplacedAttribute(document, node, markup);
        if (node.kind == NodeKind::Namespace)
            throw failure{E_INVALIDARG};
        return Spliced(document, node.begin, node.end, AsContent(markup));
    }
    if (node.kind != NodeKind::Element && node.kind != NodeKind::Document)
        throw failure{E_INVALIDARG};
    const std::wstring content = AsContent(markup);
    if (node.kind == NodeKind::Document || node.hasEndTag) {
        const std::uint32_t place = mode == ChangeMode::Insert ? node.contentBegin : node.contentEnd;
        return Spliced(document, place, place, content);
    }
    if (content.empty())
        return std::wstring(document.text());
    // <name/> gets an end tag.
    std::wstring opened = L">" + content + L"</";
    opened.append(document.qualifiedName(index)).append(L">");
    std::uint32_t begin = node.end - 2;
    while (IsXmlSpace(document.raw(begin - 1, begin)[0]))
        --begin;
    return Spliced(document, begin, node.end, opened);
}

} // namespace keldan
