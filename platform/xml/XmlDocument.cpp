#include "platform/xml/XmlDocument.h"

#include "platform/xml/Failure.h"
#include "platform/xml/XmlParser.h"

#include <algorithm>
#include <unordered_map>
#include <utility>

namespace keldan {

XmlDocument::XmlDocument(std::wstring text) : text_(std::move(text)) {
    XmlParser(*this, XmlParser::Scope::Document).Parse();
}

bool XmlDocument::IsContent(std::wstring_view text) {
    XmlDocument content;
    content.text_ = text;
    try {
        XmlParser(content, XmlParser::Scope::Content).Parse();
        return true;
    } catch (const failure&) {
        return false;
    }
}

std::wstring_view XmlDocument::qualifiedName(node_index node) const {
    return raw(nodes_[node].nameBegin, nodes_[node].nameBegin + nodes_[node].nameLength);
}

std::wstring_view XmlDocument::prefix(node_index node) const {
    return qualifiedName(node).substr(0, nodes_[node].prefixLength);
}

std::wstring_view XmlDocument::localName(node_index node) const {
    const auto name = qualifiedName(node);
    return nodes_[node].prefixLength ? name.substr(nodes_[node].prefixLength + 1) : name;
}

void XmlDocument::appendDecoded(std::wstring_view raw, bool attribute, std::wstring& out) const {
    const wchar_t* special = attribute ? L"&\r\n\t" : L"&\r<";
    size_t position = 0;
    for (;;) {
        const size_t found = raw.find_first_of(special, position);
        out.append(raw.substr(position, found - position));
        if (found == raw.npos)
            return;
        position = found + 1;
        switch (raw[found]) {
        case L'&': {
            const size_t semicolon = raw.find(L';', position);
            const unsigned long value = XmlParser::ResolveReference(raw.substr(position, semicolon - position));
            if (value >= 0x10000) {
                out.push_back(static_cast<wchar_t>(0xD800 + ((value - 0x10000) >> 10)));
                out.push_back(static_cast<wchar_t>(0xDC00 + ((value - 0x10000) & 0x3FF)));
            } else {
                out.push_back(static_cast<wchar_t>(value));
            }
            position = semicolon + 1;
            break;
        }
        case L'<': {
            // Only a CDATA section begins so within text.
            const size_t begin = found + 9;
            const size_t end = raw.find(L"]]>", begin);
            for (size_t i = begin; i < end; ++i)
                if (raw[i] != L'\r')
                    out.push_back(raw[i]);
                else if (raw[i + 1] != L'\n')
                    out.push_back(L'\n');
            position = end + 3;
            break;
        }
        default:
            // A line end is one character, and in an attribute white space is a blank.
            if (raw[found] == L'\r' && position < raw.size() && raw[position] == L'\n')
                ++position;
            out.push_back(attribute ? L' ' : L'\n');
        }
    }
}

void XmlDocument::appendText(node_index node, std::wstring& out) const {
    const xml_node& asked = nodes_[node];
    switch (asked.kind) {
    case NodeKind::Document:
    case NodeKind::Element:
        for (node_index i = node + 1; i < asked.after; ++i)
            if (nodes_[i].kind == NodeKind::Text)
                appendDecoded(raw(nodes_[i].contentBegin, nodes_[i].contentEnd), false, out);
        return;
    case NodeKind::Attribute:
    case NodeKind::Namespace:
        return appendDecoded(raw(asked.contentBegin, asked.contentEnd), true, out);
    case NodeKind::Text:
        return appendDecoded(raw(asked.contentBegin, asked.contentEnd), false, out);
    case NodeKind::Comment:
    case NodeKind::Instruction:
        out.append(raw(asked.contentBegin, asked.contentEnd));
    }
}

void XmlDocument::appendMarkup(node_index node, std::wstring& out) const {
    const xml_node& asked = nodes_[node];
    if (node == 0) {
        out.append(text());
        return;
    }
    if (asked.kind != NodeKind::Element || asked.parent == 0) {
        out.append(raw(asked.begin, asked.end));
        return;
    }
    // Declarations of the ancestors, the nearest of each prefix, that the element does not make itself.
    std::unordered_map<std::wstring_view, node_index> outer;
    const auto prefixOf = [&](node_index i) { return nodes_[i].prefixLength ? localName(i) : std::wstring_view(); };
    for (node_index ancestor = asked.parent; ancestor != 0; ancestor = nodes_[ancestor].parent)
        for (node_index i = ancestor + 1; i < size() && nodes_[i].parent == ancestor; ++i) {
            if (nodes_[i].kind == NodeKind::Namespace)
                outer.try_emplace(prefixOf(i), i);
            else if (nodes_[i].kind != NodeKind::Attribute)
                break;
        }
    for (node_index i = node + 1; i < asked.after && !outer.empty(); ++i) {
        if (nodes_[i].kind == NodeKind::Namespace)
            outer.erase(prefixOf(i));
        else if (nodes_[i].kind != NodeKind::Attribute)
            break;
    }
    const std::uint32_t nameEnd = asked.nameBegin + asked.nameLength;
    out.append(raw(asked.begin, nameEnd));
    for (node_index i = node; i < asked.after && !outer.empty(); ++i) {
        const bool named = nodes_[i].kind == NodeKind::Element ||
                           (nodes_[i].kind == NodeKind::Attribute && nodes_[i].prefixLength != 0);
        if (!named || nodes_[i].space == 0)
            continue;
        const auto found = outer.find(prefix(i));
        if (found == outer.end() || nodes_[found->second].space != nodes_[i].space)
            continue;
        const xml_node& declaration = nodes_[found->second];
        out.append(L" ").append(raw(declaration.begin, declaration.end));
        outer.erase(found);
    }
    out.append(raw(nameEnd, asked.end));
}

std::wstring XmlDocument::namespaceList() const {
    std::wstring list;
    for (node_index i : declarations_) {
        if (!list.empty())
            list += L' ';
        list.append(qualifiedName(i)).append(L"='");
        // As written, but for the quote that the list uses.
        for (wchar_t c : raw(nodes_[i].contentBegin, nodes_[i].contentEnd))
            if (c == L'\'')
                list += L"&apos;";
            else
                list += c;
        list += L'\'';
    }
    return list;
}

bool XmlDocument::findPrefix(std::wstring_view prefix, std::uint32_t& space) const {
    if (prefix == L"xml") {
        space = 1;
        return true;
    }
    for (node_index i : declarations_)
        if (localName(i) == prefix) {
            space = nodes_[i].space;
            return true;
        }
    return false;
}

std::uint32_t XmlDocument::findNamespace(std::wstring_view uri) const {
    const auto found = std::find(spaces_.begin(), spaces_.end(), uri);
    return found == spaces_.end() ? 0xFFFFFFFF : static_cast<std::uint32_t>(found - spaces_.begin());
}

} // namespace keldan
