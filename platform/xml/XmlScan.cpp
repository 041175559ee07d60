#include "platform/xml/XmlScan.h"

#include "common/com/result_error.h"
#include "common/xml/XmlCharacters.h"

#include <algorithm>
#include <unordered_set>
#include <vector>

namespace keldan {

namespace {

constexpr std::wstring_view BLANKS = L" \t\r\n";
constexpr std::wstring_view XMLNS = L"xmlns";

[[noreturn]] void Malformed() {
    throw vorna::result_error(vorna::RESULT_XML_MALFORMED);
}

class Scanner {
  public:
    explicit Scanner(std::wstring_view text) : text_(text) {}
    XmlOutline Scan();

  private:
    struct Binding {
        size_t depth;
        std::wstring_view prefix;
    };

    size_t Behind(std::wstring_view mark, size_t from) const;
    void SkipDeclaration();
    void ScanStartTag();
    void ScanEndTag();
    void Declare(std::wstring_view name, std::wstring_view value);
    void CheckName(std::wstring_view name, bool element) const;

    std::wstring_view text_;
    size_t position_ = 0;
    size_t depth_ = 0;
    std::vector<Binding> bindings_;
    std::unordered_set<std::wstring_view> listed_;
    // The names of the attributes in the current tag.
    std::vector<std::wstring_view> names_;
    XmlOutline outline_;
};

size_t Scanner::Behind(std::wstring_view mark, size_t from) const {
    const size_t found = text_.find(mark, from);
    if (found == text_.npos)
        Malformed();
    return found + mark.size();
}

void Scanner::SkipDeclaration() {
    if (text_.starts_with(L'\xFEFF'))
        ++position_;
    const auto rest = text_.substr(position_);
    if (rest.starts_with(L"<?xml") && rest.size() > 5 && vorna::IsXmlSpace(rest[5]))
        position_ = std::min(text_.find_first_not_of(BLANKS, Behind(L"?>", position_)), text_.size());
    outline_.bodyBegin = position_;
    if (text_.substr(position_).starts_with(L"<?xml "))
        Malformed();
}

XmlOutline Scanner::Scan() {
    // MSXML would ignore the text after a null.
    if (text_.find(L'\0') != text_.npos)
        Malformed();
    SkipDeclaration();
    while ((position_ = text_.find(L'<', position_)) != text_.npos) {
        const auto rest = text_.substr(position_);
        if (rest.starts_with(L"<!--"))
            position_ = Behind(L"-->", position_ + 4);
        else if (rest.starts_with(L"<![CDATA["))
            position_ = Behind(L"]]>", position_ + 9);
        else if (rest.starts_with(L"<?"))
            position_ = Behind(L"?>", position_ + 2);
        else if (rest.starts_with(L"<!"))
            // A document type definition: it could define entities that grow without limit or name files.
            Malformed();
        else if (rest.starts_with(L"</"))
            ScanEndTag();
        else
            ScanStartTag();
    }
    return std::move(outline_);
}

void Scanner::ScanEndTag() {
    position_ = Behind(L">", position_);
    if (depth_ == 0)
        Malformed();
    while (!bindings_.empty() && bindings_.back().depth == depth_)
        bindings_.pop_back();
    --depth_;
}

void Scanner::ScanStartTag() {
    if (++depth_ > MAXIMUM_DEPTH)
        Malformed();
    const size_t nameEnd = text_.find_first_of(L" \t\r\n/>", position_ + 1);
    if (nameEnd == text_.npos)
        Malformed();
    const auto name = text_.substr(position_ + 1, nameEnd - position_ - 1);
    if (++outline_.elements == 1)
        outline_.rootName = name;
    names_.clear();
    size_t at = nameEnd;
    for (;;) {
        at = text_.find_first_not_of(BLANKS, at);
        if (at == text_.npos)
            Malformed();
        if (text_[at] == L'>' || text_[at] == L'/')
            break;
        const size_t attributeEnd = text_.find_first_of(L" \t\r\n=", at);
        const size_t quote = attributeEnd == text_.npos ? attributeEnd : text_.find_first_of(L"\"'<>", attributeEnd);
        if (quote == text_.npos || text_[quote] == L'<' || text_[quote] == L'>')
            Malformed();
        const size_t end = Behind(text_.substr(quote, 1), quote + 1);
        const auto attribute = text_.substr(at, attributeEnd - at);
        if (attribute == XMLNS || attribute.starts_with(L"xmlns:"))
            Declare(attribute, text_.substr(quote + 1, end - quote - 2));
        else if (attribute.find(L':') != attribute.npos)
            names_.push_back(attribute);
        at = end;
    }
    CheckName(name, true);
    for (const auto attribute : names_)
        CheckName(attribute, false);
    const bool closed = text_[at] == L'/';
    position_ = at + 1;
    if (closed)
        ScanEndTag();
}

void Scanner::Declare(std::wstring_view name, std::wstring_view value) {
    outline_.hasNamespaces = true;
    if (name == XMLNS)
        return;
    const auto prefix = name.substr(XMLNS.size() + 1);
    if (value.empty() || prefix == XMLNS || prefix.find(L':') != prefix.npos)
        Malformed();
    if ((prefix == L"xml") != (value == L"http://www.w3.org/XML/1998/namespace"))
        Malformed();
    bindings_.push_back({depth_, prefix});
    if (!listed_.insert(prefix).second)
        return;
    std::wstring& list = outline_.namespaceList;
    if (!list.empty())
        list += L' ';
    list.append(name).append(L"='");
    // As written, except for the quote that the list uses.
    for (wchar_t c : value)
        if (c == L'\'')
            list += L"&apos;";
        else
            list += c;
    list += L'\'';
}

void Scanner::CheckName(std::wstring_view name, bool element) const {
    const size_t colon = name.find(L':');
    if (colon == name.npos)
        return;
    const auto prefix = name.substr(0, colon);
    if (colon == 0 || colon + 1 == name.size() || !vorna::IsNameStart(name[colon + 1]) ||
        name.find(L':', colon + 1) != name.npos || (element && prefix == L"xml"))
        Malformed();
    const auto declared = [&](const Binding& one) { return one.prefix == prefix; };
    if (prefix != L"xml" && std::none_of(bindings_.rbegin(), bindings_.rend(), declared))
        Malformed();
}

} // namespace

XmlOutline ScanXml(std::wstring_view text) {
    return Scanner(text).Scan();
}

} // namespace keldan
