#include "platform/xml/XmlParser.h"

#include "platform/xml/Failure.h"
#include "platform/xml/XmlCharacters.h"

#include <algorithm>
#include <tuple>

namespace keldan {

namespace {

constexpr wchar_t XML_URI[] = L"http://www.w3.org/XML/1998/namespace";
constexpr wchar_t XMLNS_URI[] = L"http://www.w3.org/2000/xmlns/";
constexpr std::uint32_t XML_SPACE = 1;
constexpr std::uint32_t XMLNS_SPACE = 2;

} // namespace

XmlParser::XmlParser(XmlDocument& document, Scope scope)
    : document_(document), text_(document.text_), nodes_(document.nodes_), content_(scope == Scope::Content) {
    document_.spaces_ = {std::wstring(), XML_URI, XMLNS_URI};
    spaces_ = {{XML_URI, XML_SPACE}, {XMLNS_URI, XMLNS_SPACE}};
    bound_[L"xml"] = {XML_SPACE};
    nodes_.reserve(text_.size() / 24 + 8);
}

void XmlParser::Malformed() {
    throw failure{vorna::RESULT_XML_MALFORMED};
}

void XmlParser::Parse() {
    checkCharacters();
    if (peek() == 0xFEFF)
        ++position_;
    if (at(L"<?xml") && position_ + 5 < text_.size() && IsXmlSpace(text_[position_ + 5]))
        parseDeclaration();
    document_.bodyBegin_ = static_cast<std::uint32_t>(position_);
    open_.push_back(add(NodeKind::Document, position_));
    nodes_[0].contentBegin = nodes_[0].begin;

    while (position_ < text_.size()) {
        if (text_[position_] != L'<' || at(L"<![CDATA["))
            parseText();
        else if (at(L"</"))
            parseEndTag();
        else if (at(L"<!--"))
            parseComment();
        else if (at(L"<?"))
            parseInstruction();
        else if (at(L"<!"))
            // A document type definition: it could define entities that grow without bound or name files.
            Malformed();
        else
            parseStartTag();
    }
    if (open_.size() != 1 || (document_.root_ == NO_NODE && !content_))
        Malformed();
    nodes_[0].end = nodes_[0].contentEnd = static_cast<std::uint32_t>(text_.size());
    nodes_[0].after = document_.size();
}

void XmlParser::checkCharacters() const {
    const size_t size = text_.size();
    for (size_t i = 0; i < size; ++i) {
        const wchar_t c = text_[i];
        if (c >= 0x20 && c < 0xD800)
            continue;
        if (c < 0xE000 && c >= 0xD800) {
            if (c >= 0xDC00 || i + 1 == size || text_[i + 1] < 0xDC00 || text_[i + 1] > 0xDFFF)
                Malformed();
            ++i;
        } else if (!IsXmlCharacter(c)) {
            Malformed();
        }
    }
}

bool XmlParser::skipSpace() {
    const size_t begin = position_;
    while (position_ < text_.size() && IsXmlSpace(text_[position_]))
        ++position_;
    return position_ != begin;
}

void XmlParser::skipPast(std::wstring_view mark) {
    const size_t found = text_.find(mark, position_);
    if (found == std::wstring::npos)
        Malformed();
    position_ = found + mark.size();
}

std::uint32_t XmlParser::scanName() {
    const size_t begin = position_;
    if (!IsNameStart(peek()))
        Malformed();
    do
        ++position_;
    while (position_ < text_.size() && IsNameCharacter(text_[position_]));
    return static_cast<std::uint32_t>(position_ - begin);
}

void XmlParser::parseDeclaration() {
    position_ += 5;
    static constexpr std::wstring_view names[] = {L"version", L"encoding", L"standalone"};
    size_t next = 0;
    while (skipSpace() && !at(L"?>")) {
        while (next < 3 && !at(names[next])) {
            if (next == 0)
                Malformed();
            ++next;
        }
        if (next == 3)
            Malformed();
        position_ += names[next].size();
        skipSpace();
        if (peek() != L'=')
            Malformed();
        ++position_;
        skipSpace();
        const wchar_t quote = peek();
        if (quote != L'"' && quote != L'\'')
            Malformed();
        const size_t begin = ++position_;
        skipPast(std::wstring_view(&quote, 1));
        const auto value = std::wstring_view(text_).substr(begin, position_ - 1 - begin);
        if (value.empty() || value.find_first_of(L"<>&\"'") != value.npos ||
            (next == 0 && value.substr(0, 2) != L"1.") || (next == 2 && value != L"yes" && value != L"no"))
            Malformed();
        ++next;
    }
    if (next == 0 || !at(L"?>"))
        Malformed();
    position_ += 2;
    skipSpace();
}

void XmlParser::parseText() {
    const size_t begin = position_;
    bool character = false;
    while (position_ < text_.size()) {
        if (text_[position_] == L'<') {
            if (!at(L"<![CDATA["))
                break;
            character = true;
            skipPast(L"]]>");
            continue;
        }
        const size_t end = std::min(text_.find(L'<', position_), text_.size());
        const auto run = std::wstring_view(text_).substr(position_, end - position_);
        if (run.find(L"]]>") != run.npos)
            Malformed();
        checkReferences(position_, end);
        character = character || run.find_first_not_of(L" \t\r\n") != run.npos;
        position_ = end;
    }
    if (open_.size() == 1 && !content_) {
        if (character)
            Malformed();
        return;
    }
    const node_index node = add(NodeKind::Text, begin);
    nodes_[node].contentBegin = nodes_[node].begin;
    nodes_[node].end = nodes_[node].contentEnd = static_cast<std::uint32_t>(position_);
}

unsigned long XmlParser::ResolveReference(std::wstring_view reference) {
    if (reference == L"lt")
        return L'<';
    if (reference == L"gt")
        return L'>';
    if (reference == L"amp")
        return L'&';
    if (reference == L"quot")
        return L'"';
    if (reference == L"apos")
        return L'\'';
    if (reference.size() < 2 || reference[0] != L'#')
        return 0;
    const bool hexadecimal = reference[1] == L'x';
    unsigned long value = 0;
    const auto digits = reference.substr(hexadecimal ? 2 : 1);
    for (wchar_t c : digits) {
        unsigned digit = 99;
        if (c >= L'0' && c <= L'9')
            digit = c - L'0';
        else if (hexadecimal && (c | 0x20) >= L'a' && (c | 0x20) <= L'f')
            digit = (c | 0x20) - L'a' + 10;
        if (digit == 99 || value > 0x10FFFF)
            return 0;
        value = value * (hexadecimal ? 16 : 10) + digit;
    }
    return IsXmlCharacter(value) ? value : 0;
}

void XmlParser::checkReferences(size_t begin, size_t end) const {
    const auto run = std::wstring_view(text_).substr(begin, end - begin);
    for (size_t i = run.find(L'&'); i != run.npos; i = run.find(L'&', i + 1)) {
        // The longest reference worth reading, so that a text full of ampersands is not read again and again.
        const auto rest = run.substr(i + 1, 32);
        const size_t semicolon = rest.find(L';');
        if (semicolon == rest.npos || !ResolveReference(rest.substr(0, semicolon)))
            Malformed();
    }
}

void XmlParser::parseComment() {
    const node_index node = add(NodeKind::Comment, position_);
    position_ += 4;
    nodes_[node].contentBegin = static_cast<std::uint32_t>(position_);
    skipPast(L"--");
    if (peek() != L'>')
        Malformed();
    nodes_[node].contentEnd = static_cast<std::uint32_t>(position_ - 2);
    nodes_[node].end = static_cast<std::uint32_t>(++position_);
}

void XmlParser::parseInstruction() {
    const node_index node = add(NodeKind::Instruction, position_);
    position_ += 2;
    const auto begin = static_cast<std::uint32_t>(position_);
    const std::uint32_t length = scanName();
    const auto target = std::wstring_view(text_).substr(begin, length);
    const bool reserved =
        length == 3 && (target[0] | 0x20) == L'x' && (target[1] | 0x20) == L'm' && (target[2] | 0x20) == L'l';
    if (reserved || (!skipSpace() && !at(L"?>")))
        Malformed();
    nodes_[node].nameBegin = begin;
    nodes_[node].nameLength = length;
    nodes_[node].contentBegin = static_cast<std::uint32_t>(position_);
    skipPast(L"?>");
    nodes_[node].contentEnd = static_cast<std::uint32_t>(position_ - 2);
    nodes_[node].end = static_cast<std::uint32_t>(position_);
}

void XmlParser::parseStartTag() {
    if (open_.size() > XmlDocument::MaximumDepth || (open_.size() == 1 && !content_ && document_.root_ != NO_NODE))
        Malformed();
    const node_index element = add(NodeKind::Element, position_++);
    if (document_.root_ == NO_NODE)
        document_.root_ = element;
    const auto begin = static_cast<std::uint32_t>(position_);
    setName(element, begin, scanName());
    open_.push_back(element);
    while (skipSpace() && peek() != L'>' && peek() != L'/')
        parseAttribute();
    const bool closed = peek() == L'/';
    if (closed)
        ++position_;
    if (peek() != L'>')
        Malformed();
    ++position_;
    nodes_[element].hasEndTag = !closed;
    nodes_[element].contentBegin = nodes_[element].contentEnd = static_cast<std::uint32_t>(position_);
    bindNamespaces(element);
    if (closed)
        closeElement();
}

void XmlParser::parseAttribute() {
    const size_t begin = position_;
    const std::uint32_t length = scanName();
    skipSpace();
    if (peek() != L'=')
        Malformed();
    ++position_;
    skipSpace();
    const wchar_t quote = peek();
    if (quote != L'"' && quote != L'\'')
        Malformed();
    const size_t valueBegin = ++position_;
    skipPast(std::wstring_view(&quote, 1));
    const auto value = std::wstring_view(text_).substr(valueBegin, position_ - 1 - valueBegin);
    if (value.find(L'<') != value.npos)
        Malformed();
    checkReferences(valueBegin, position_ - 1);
    const auto name = std::wstring_view(text_).substr(begin, length);
    const bool declaration = name == L"xmlns" || name.starts_with(L"xmlns:");
    const node_index node = add(declaration ? NodeKind::Namespace : NodeKind::Attribute, begin);
    setName(node, static_cast<std::uint32_t>(begin), length);
    nodes_[node].contentBegin = static_cast<std::uint32_t>(valueBegin);
    nodes_[node].contentEnd = static_cast<std::uint32_t>(position_ - 1);
    nodes_[node].end = static_cast<std::uint32_t>(position_);
}

void XmlParser::bindNamespaces(node_index element) {
    const node_index first = element + 1;
    const node_index end = document_.size();
    for (node_index i = first; i < end; ++i) {
        xml_node& node = nodes_[i];
        if (node.kind != NodeKind::Namespace)
            continue;
        const auto prefix = node.prefixLength ? document_.localName(i) : std::wstring_view();
        std::wstring uri;
        document_.appendText(i, uri);
        if ((prefix.empty() ? false : uri.empty()) || prefix == L"xmlns" || uri == XMLNS_URI ||
            (prefix == L"xml") != (uri == XML_URI))
            Malformed();
        const std::uint32_t space = intern(std::move(uri));
        const auto [meanings, added] = bound_.try_emplace(prefix);
        if (added && !prefix.empty())
            document_.declarations_.push_back(i);
        meanings->second.push_back(space);
        bindings_.push_back({element, prefix});
        node.space = space;
    }
    for (node_index i = element; i < end; ++i)
        if (nodes_[i].kind != NodeKind::Namespace)
            resolve(nodes_[i]);
    checkUnique(first, end);
}

void XmlParser::resolve(xml_node& node) {
    if (node.prefixLength == 0 && node.kind == NodeKind::Attribute)
        return;
    const auto prefix = std::wstring_view(text_).substr(node.nameBegin, node.prefixLength);
    const auto found = bound_.find(prefix);
    if (found != bound_.end() && !found->second.empty())
        node.space = found->second.back();
    else if (!prefix.empty() && !content_)
        Malformed();
}

void XmlParser::checkUnique(node_index first, node_index end) const {
    // With undeclared prefixes the prefix stands for the namespace.
    const auto key = [&](node_index i) {
        return std::tuple(nodes_[i].kind, nodes_[i].kind == NodeKind::Namespace ? 0 : nodes_[i].space,
                          nodes_[i].space ? std::wstring_view() : document_.prefix(i), document_.localName(i));
    };
    const node_index count = end - first;
    if (count < 2)
        return;
    if (count <= 8) {
        for (node_index i = first; i < end; ++i)
            for (node_index j = first; j < i; ++j)
                if (nodes_[i].kind == nodes_[j].kind && key(i) == key(j))
                    Malformed();
        return;
    }
    std::vector<node_index> order(count);
    for (node_index i = 0; i < count; ++i)
        order[i] = first + i;
    std::sort(order.begin(), order.end(), [&](node_index a, node_index b) { return key(a) < key(b); });
    if (std::adjacent_find(order.begin(), order.end(), [&](node_index a, node_index b) { return key(a) == key(b); }) !=
        order.end())
        Malformed();
}

void XmlParser::parseEndTag() {
    if (open_.size() == 1)
        Malformed();
    const node_index element = open_.back();
    nodes_[element].contentEnd = static_cast<std::uint32_t>(position_);
    position_ += 2;
    const auto name = document_.qualifiedName(element);
    if (!at(name))
        Malformed();
    position_ += name.size();
    skipSpace();
    if (peek() != L'>')
        Malformed();
    ++position_;
    closeElement();
}

void XmlParser::closeElement() {
    const node_index element = open_.back();
    open_.pop_back();
    nodes_[element].end = static_cast<std::uint32_t>(position_);
    nodes_[element].after = document_.size();
    while (!bindings_.empty() && bindings_.back().element == element) {
        bound_[bindings_.back().prefix].pop_back();
        bindings_.pop_back();
    }
}

node_index XmlParser::add(NodeKind kind, size_t begin) {
    xml_node node;
    node.kind = kind;
    node.begin = static_cast<std::uint32_t>(begin);
    node.parent = open_.empty() ? NO_NODE : open_.back();
    nodes_.push_back(node);
    nodes_.back().after = document_.size();
    return document_.size() - 1;
}

void XmlParser::setName(node_index node, std::uint32_t begin, std::uint32_t length) {
    nodes_[node].nameBegin = begin;
    nodes_[node].nameLength = length;
    const auto name = std::wstring_view(text_).substr(begin, length);
    const size_t colon = name.find(L':');
    if (colon == name.npos)
        return;
    if (colon == 0 || colon > 0xFFFF || colon + 1 == length || !IsNameStart(name[colon + 1]) ||
        name.find(L':', colon + 1) != name.npos)
        Malformed();
    nodes_[node].prefixLength = static_cast<std::uint16_t>(colon);
}

std::uint32_t XmlParser::intern(std::wstring uri) {
    if (uri.empty())
        return 0;
    const auto [found, added] = spaces_.try_emplace(uri, static_cast<std::uint32_t>(document_.spaces_.size()));
    if (added)
        document_.spaces_.push_back(std::move(uri));
    return found->second;
}

} // namespace keldan
