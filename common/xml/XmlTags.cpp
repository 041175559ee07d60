#include "common/xml/XmlTags.h"

namespace vorna {

namespace {

constexpr std::wstring_view BLANKS = L" \t\r\n";

// The position after the next occurrence of mark; the end of the text if there is none.
std::size_t After(std::wstring_view text, std::wstring_view mark, std::size_t from) {
    std::size_t at = text.find(mark, from);
    return at == std::wstring_view::npos ? text.size() : at + mark.size();
}

} // namespace

bool XmlMarkupWalk::Next() {
    begin_ = text_.find(L'<', end_);
    if (begin_ == std::wstring_view::npos || begin_ + 1 >= text_.size())
        return false;
    std::wstring_view rest = text_.substr(begin_);
    if (rest[1] == L'/') {
        kind_ = XmlMarkup::EndTag;
        end_ = After(text_, L">", begin_);
    } else if (rest[1] == L'?') {
        kind_ = XmlMarkup::Instruction;
        end_ = After(text_, L"?>", begin_ + 2);
    } else if (rest.starts_with(L"<!--")) {
        kind_ = XmlMarkup::Comment;
        end_ = After(text_, L"-->", begin_ + 4);
    } else if (rest.starts_with(L"<![CDATA[")) {
        kind_ = XmlMarkup::Data;
        end_ = After(text_, L"]]>", begin_ + 9);
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
    std::size_t nameEnd = markup_.find_first_of(L" \t\r\n=", from);
    std::size_t quote = markup_.find_first_of(L"\"'", from);
    if (nameEnd == std::wstring_view::npos || quote == std::wstring_view::npos || nameEnd > quote)
        return false;
    std::size_t closing = markup_.find(markup_[quote], quote + 1);
    if (closing == std::wstring_view::npos)
        return false;
    name_ = markup_.substr(from, nameEnd - from);
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
            at = After(xml, L"?>", at + 2);
        else if (rest.starts_with(L"<!--"))
            at = After(xml, L"-->", at + 4);
        else
            return rest.starts_with(L"<!DOCTYPE");
    }
}

std::wstring NamespaceDeclarations(std::wstring_view xml, std::set<std::wstring_view> prefixes) {
    constexpr std::wstring_view PREFIXED = L"xmlns:";
    std::wstring document;
    if (prefixes.empty() || xml.find(PREFIXED) == std::wstring_view::npos)
        return document;
    XmlMarkupWalk tags(xml);
    while (!prefixes.empty() && tags.Next()) {
        if (!tags.OpensElement() || tags.Markup().find(PREFIXED) == std::wstring_view::npos)
            continue;
        XmlAttributeWalk attributes(tags.Markup());
        while (attributes.Next()) {
            const std::wstring_view name = attributes.Name();
            if (name.starts_with(PREFIXED) && prefixes.erase(name.substr(PREFIXED.size())) > 0)
                document.append(document.empty() ? L"<d " : L" ").append(name).append(L"=").append(attributes.Value());
        }
    }
    if (!document.empty())
        document.append(L"/>");
    return document;
}

} // namespace vorna
