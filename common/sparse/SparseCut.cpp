#include "common/sparse/SparseCut.h"

#include "common/com/scope_exit.h"
#include "common/sparse/MsxmlDocument.h"
#include "common/xml/XmlTags.h"

#include <algorithm>
#include <utility>

namespace vorna {

namespace {

// A name that occurs nowhere in xml, so that attributes of clients are never mistaken for marks.
std::wstring FreeName(std::wstring_view xml) {
    const std::wstring first = L"idNode";
    std::wstring name = first;
    for (int i = 1; xml.find(name) != std::wstring_view::npos; ++i)
        name = first + std::to_wstring(i);
    return name;
}

// Appends a part of a tag. Some versions of MSXML write hexadecimal references for characters beyond ASCII in
// attribute values; these are replaced by the characters.
void AppendPlain(std::wstring& text, std::wstring_view tag) {
    constexpr std::wstring_view HEXADECIMAL = L"&#x";
    for (std::size_t at; (at = tag.find(HEXADECIMAL)) != std::wstring_view::npos;) {
        const std::size_t end = std::min(tag.find(L';', at), tag.size());
        unsigned long code = 0;
        for (const wchar_t digit : tag.substr(at + HEXADECIMAL.size(), end - at - HEXADECIMAL.size()))
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

SparseCut::SparseCut(std::wstring_view xml)
    : name_(FreeName(xml)), token_(name_.str() + L":"), keepReturns_(xml.find(L'\r') != std::wstring_view::npos) {}

void SparseCut::Mark(IXMLDOMNode* selected) {
    DOMNodeType type = NODE_INVALID;
    // Namespace nodes are in the list as null.
    if (!selected || selected->get_nodeType(&type) != S_OK)
        return;
    switch (type) {
    case NODE_DOCUMENT:
        MarkElement(RootElement(selected).get());
        break;
    case NODE_ELEMENT:
        belowRoot_ = belowRoot_ || MayStandAlone(selected);
        if (belowRoot_)
            MarkElement(com_ptr<IXMLDOMNode>(selected).try_as<IXMLDOMElement>().get());
        break;
    case NODE_COMMENT:
    case NODE_PROCESSING_INSTRUCTION:
        if (MayStandAlone(selected))
            MarkValue(selected);
        break;
    case NODE_ATTRIBUTE:
    case NODE_TEXT:
    case NODE_CDATA_SECTION:
        MarkValue(selected);
        break;
    default:
        break;
    }
}

void SparseCut::MarkElement(IXMLDOMElement* element) {
    if (element)
        element->setAttribute(name_.get(), VariantOf(token_));
}

void SparseCut::MarkValue(IXMLDOMNode* node) {
    VARIANT value;
    VariantInit(&value);
    const scope_exit clear([&] { VariantClear(&value); });
    if (node->get_nodeValue(&value) != S_OK || value.vt != VT_BSTR)
        return;
    const bstr marked(token_.str().append(view_of(value.bstrVal)));
    node->put_nodeValue(VariantOf(marked));
}

std::wstring SparseCut::Write(std::wstring_view markup) {
    XmlMarkupWalk walk(markup);
    std::size_t read = 0;
    while (walk.Next()) {
        WriteText(markup.substr(read, walk.begin() - read));
        read = walk.end();
        if (walk.OpensElement())
            WriteStart(walk.Markup(), walk.Kind() == XmlMarkup::StartTag);
        else if (walk.Kind() == XmlMarkup::EndTag)
            WriteEnd(walk.Markup());
        else
            WriteOther(walk.Markup());
    }
    return std::move(result_);
}

SparseCut::Marks SparseCut::ReadMarks(std::wstring_view tag) const {
    Marks marks;
    if (tag.find(name_.view()) == std::wstring_view::npos)
        return marks;
    XmlAttributeWalk attributes(tag);
    while (attributes.Next()) {
        if (attributes.Name() == name_.view())
            marks.element = true;
        else if (attributes.Value().substr(1).starts_with(token_.view()))
            marks.attribute = true;
    }
    return marks;
}

void SparseCut::WriteStart(std::wstring_view tag, bool hasEndTag) {
    const Marks marks = ReadMarks(tag);
    if (depthInSelected_ > 0 || marks.element) {
        WriteAncestors();
        WriteTag(tag);
        if (hasEndTag)
            ++depthInSelected_;
    } else if (hasEndTag) {
        ancestors_.push_back(tag);
        if (marks.attribute)
            WriteAncestors();
    } else if (marks.attribute) {
        WriteAncestors();
        WriteTag(tag);
    }
}

void SparseCut::WriteEnd(std::wstring_view tag) {
    if (depthInSelected_ > 0) {
        --depthInSelected_;
        Append(tag);
        return;
    }
    if (ancestors_.empty())
        return;
    ancestors_.pop_back();
    if (ancestorsWritten_ <= ancestors_.size())
        return;
    ancestorsWritten_ = ancestors_.size();
    Append(tagOpen_ ? L"/>" : tag);
    tagOpen_ = false;
}

void SparseCut::WriteOther(std::wstring_view markup) {
    const std::size_t token = markup.find(token_.view());
    if (token != std::wstring_view::npos) {
        const std::wstring_view rest = markup.substr(token + token_.view().size());
        WriteAncestors();
        CloseTag();
        // An instruction without data has a blank only because of the token.
        Append(markup.substr(0, rest == L"?>" ? token - 1 : token));
        Append(rest);
    } else if (depthInSelected_ > 0) {
        Append(markup);
    }
}

void SparseCut::WriteText(std::wstring_view text) {
    const bool marked = text.starts_with(token_.view());
    if (marked)
        text.remove_prefix(token_.view().size());
    else if (depthInSelected_ == 0)
        return;
    WriteAncestors();
    CloseTag();
    Append(text);
}

void SparseCut::WriteAncestors() {
    for (; ancestorsWritten_ < ancestors_.size(); ++ancestorsWritten_) {
        const std::wstring_view tag = ancestors_[ancestorsWritten_];
        WriteTag(tag.substr(0, tag.size() - 1));
        tagOpen_ = true;
    }
}

void SparseCut::WriteTag(std::wstring_view tag) {
    CloseTag();
    std::size_t written = 0;
    if (tag.find(name_.view()) != std::wstring_view::npos) {
        XmlAttributeWalk attributes(tag);
        while (attributes.Next()) {
            if (!attributes.Value().substr(1).starts_with(token_.view()))
                continue;
            const bool element = attributes.Name() == name_.view();
            const std::size_t value = attributes.end() - attributes.Value().size() + 1;
            AppendPlain(result_, tag.substr(written, (element ? attributes.begin() : value) - written));
            written = element ? attributes.end() : value + token_.view().size();
        }
    }
    AppendPlain(result_, tag.substr(written));
}

void SparseCut::CloseTag() {
    if (tagOpen_)
        result_.append(L">");
    tagOpen_ = false;
}

void SparseCut::Append(std::wstring_view piece) {
    for (std::size_t at; !keepReturns_ && (at = piece.find(L'\r')) != std::wstring_view::npos;) {
        result_.append(piece.substr(0, at));
        piece.remove_prefix(at + 1);
    }
    result_.append(piece);
}

} // namespace vorna
