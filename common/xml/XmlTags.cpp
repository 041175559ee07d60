#include "common/xml/XmlTags.h"

#include <algorithm>
#include <unordered_set>

namespace vorna {

namespace {

constexpr std::wstring_view BLANKS = L" \t\r\n";

// Behind the next occurrence of mark; the end of the text where there is none.
std::size_t Behind(std::wstring_view text, std::wstring_view mark, std::size_t from) {
    std::size_t at = text.find(mark, from);
    return at == std::wstring_view::npos ? text.size() : at + mark.size();
}

constexpr std::wstring_view HEXADECIMAL = L"&#x";

void AppendPlain(std::wstring& text, std::wstring_view tag) {
    for (std::size_t at; (at = tag.find(HEXADECIMAL)) != std::wstring_view::npos;) {
        std::size_t end = std::min(tag.find(L';', at), tag.size());
        unsigned long code = 0;
        for (wchar_t digit : tag.substr(at + HEXADECIMAL.size(), end - at - HEXADECIMAL.size()))
            code = code * 16 + static_cast<unsigned long>(digit <= L'9' ? digit - L'0' : (digit | 0x20) - L'a' + 10);
        if (end == tag.size() || code < 0x80 || code > 0x10FFFF) {
            text.append(tag.substr(0, at + HEXADECIMAL.size()));
            tag.remove_prefix(at + HEXADECIMAL.size());
            continue;
        }
        text.append(tag.substr(0, at));
        if (code > 0xFFFF) {
            text.push_back(static_cast<wchar_t>(0xD7C0 + (code >> 10)));
            code = 0xDC00 | (code & 0x3FF);
        }
        text.push_back(static_cast<wchar_t>(code));
        tag.remove_prefix(end + 1);
    }
    text.append(tag);
}

} // namespace

bool XmlMarkupWalk::Next() {
    begin_ = text_.find(L'<', end_);
    if (begin_ == std::wstring_view::npos || begin_ + 1 >= text_.size())
        return false;
    std::wstring_view rest = text_.substr(begin_);
    if (rest[1] == L'/') {
        kind_ = XmlMarkup::EndTag;
        end_ = Behind(text_, L">", begin_);
    } else if (rest[1] == L'?') {
        kind_ = XmlMarkup::Instruction;
        end_ = Behind(text_, L"?>", begin_ + 2);
    } else if (rest.starts_with(L"<!--")) {
        kind_ = XmlMarkup::Comment;
        end_ = Behind(text_, L"-->", begin_ + 4);
    } else if (rest.starts_with(L"<![CDATA[")) {
        kind_ = XmlMarkup::Data;
        end_ = Behind(text_, L"]]>", begin_ + 9);
    } else {
        return rest[1] != L'!' && FindTagEnd();
    }
    return true;
}

bool XmlMarkupWalk::FindTagEnd() {
    for (std::size_t at = begin_ + 1; at < text_.size(); ++at) {
        wchar_t c = text_[at];
        if (c == L'"' || c == L'\'') {
            at = text_.find(c, at + 1);
            if (at == std::wstring_view::npos)
                return false;
        } else if (c == L'>') {
            kind_ = text_[at - 1] == L'/' ? XmlMarkup::EmptyTag : XmlMarkup::StartTag;
            end_ = at + 1;
            return true;
        }
    }
    return false;
}

XmlAttributeWalk::XmlAttributeWalk(std::wstring_view markup) : markup_(markup) {
    end_ = markup_.find_first_of(L" \t\r\n/>");
    if (end_ == std::wstring_view::npos)
        end_ = markup_.size();
}

bool XmlAttributeWalk::Next() {
    begin_ = end_;
    std::size_t from = markup_.find_first_not_of(BLANKS, begin_);
    if (from == std::wstring_view::npos)
        return false;
    std::size_t behindName = markup_.find_first_of(L" \t\r\n=", from);
    std::size_t quote = markup_.find_first_of(L"\"'", from);
    if (behindName == std::wstring_view::npos || quote == std::wstring_view::npos || behindName > quote)
        return false;
    std::size_t closing = markup_.find(markup_[quote], quote + 1);
    if (closing == std::wstring_view::npos)
        return false;
    name_ = markup_.substr(from, behindName - from);
    value_ = markup_.substr(quote, closing + 1 - quote);
    end_ = closing + 1;
    return true;
}

bool HasDoctype(std::wstring_view xml) {
    std::size_t at = xml.starts_with(L'\xFEFF') ? 1 : 0;
    for (;;) {
        at = xml.find_first_not_of(BLANKS, at);
        if (at == std::wstring_view::npos)
            return false;
        std::wstring_view rest = xml.substr(at);
        if (rest.starts_with(L"<?"))
            at = Behind(xml, L"?>", at + 2);
        else if (rest.starts_with(L"<!--"))
            at = Behind(xml, L"-->", at + 4);
        else
            return rest.starts_with(L"<!DOCTYPE");
    }
}

std::wstring NamespaceDeclarations(std::wstring_view xml) {
    constexpr std::wstring_view PREFIXED = L"xmlns:";
    std::wstring document;
    if (xml.find(PREFIXED) == std::wstring_view::npos)
        return document;
    std::unordered_set<std::wstring_view> seen;
    XmlMarkupWalk tags(xml);
    while (tags.Next()) {
        if (!tags.OpensElement() || tags.Markup().find(PREFIXED) == std::wstring_view::npos)
            continue;
        XmlAttributeWalk attributes(tags.Markup());
        while (attributes.Next()) {
            std::wstring_view whole = tags.Markup().substr(attributes.begin(), attributes.end() - attributes.begin());
            if (!attributes.Name().starts_with(PREFIXED) || !seen.insert(whole).second)
                continue;
            // An element for each: one prefix may be declared with several names.
            document.append(document.empty() ? L"<d><d " : L"<d ");
            document.append(attributes.Name()).append(L"=").append(attributes.Value()).append(L"/>");
        }
    }
    if (!document.empty())
        document.append(L"</d>");
    return document;
}

bool DeclaresBelowRoot(std::wstring_view xml) {
    XmlMarkupWalk walk(xml);
    while (walk.Next())
        if (walk.OpensElement())
            return xml.find(L"xmlns", walk.end()) != std::wstring_view::npos;
    return false;
}

std::wstring PlainAttributes(std::wstring text) {
    if (text.find(HEXADECIMAL) == std::wstring::npos)
        return text;
    std::wstring plain;
    std::size_t read = 0;
    XmlMarkupWalk walk(text);
    while (walk.Next()) {
        if (!walk.OpensElement())
            continue;
        plain.append(text, read, walk.begin() - read);
        AppendPlain(plain, walk.Markup());
        read = walk.end();
    }
    return plain.append(text, read, std::wstring::npos);
}

void AppendLines(std::wstring& text, std::wstring_view piece, bool keepReturns) {
    while (!keepReturns) {
        std::size_t at = piece.find(L'\r');
        if (at == std::wstring_view::npos)
            break;
        text.append(piece.substr(0, at));
        piece.remove_prefix(at + 1);
    }
    text.append(piece);
}

} // namespace vorna
