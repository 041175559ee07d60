#include "common/sparse/SparseCut.h"

#include "common/com/scope_exit.h"
#include "common/com/text_forms.h"
#include "common/sparse/MsxmlDocument.h"
#include "common/xml/XmlTags.h"

#include <algorithm>
#include <utility>

namespace vorna {

namespace {

// A name that no document contains: it has 80 random bits, made after the document. Short, since each mark is written.
std::wstring NewMark() {
    // {8 digits-4-4-4-12 digits}; some bits in the middle are not random.
    const std::wstring guid = new_guid_text();
    return L"m" + guid.substr(1, 8) + guid.substr(25, 12);
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

SparseCut::SparseCut(IXMLDOMDocument* source, std::wstring_view xml)
    : mark_(NewMark()), noData_(std::wstring_view()), keepReturns_(xml.find(L'\r') != std::wstring_view::npos) {
    com_ptr<IXMLDOMProcessingInstruction> instruction;
    throw_if_failed(source->createProcessingInstruction(mark_.get(), noData_.get(), instruction.put()));
    placeMark_ = instruction.try_as<IXMLDOMNode>();
}

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
    case NODE_ATTRIBUTE:
        MarkAttribute(selected);
        break;
    case NODE_COMMENT:
    case NODE_PROCESSING_INSTRUCTION:
        if (MayStandAlone(selected))
            MarkPlace(selected);
        break;
    case NODE_TEXT:
    case NODE_CDATA_SECTION:
        MarkPlace(selected);
        break;
    default:
        break;
    }
}

void SparseCut::MarkElement(IXMLDOMElement* element) {
    if (element)
        element->setAttribute(mark_.get(), VariantOf(noData_));
}

void SparseCut::MarkAttribute(IXMLDOMNode* attribute) {
    VARIANT value;
    VariantInit(&value);
    const scope_exit clear([&] { VariantClear(&value); });
    if (attribute->get_nodeValue(&value) != S_OK || value.vt != VT_BSTR)
        return;
    std::wstring marked = mark_.str();
    std::wstring_view rest = view_of(value.bstrVal);
    // MSXML drops carriage returns from the values that it is given.
    for (std::size_t at; (at = rest.find(L'\r')) != std::wstring_view::npos; rest.remove_prefix(at + 1))
        marked.append(rest.substr(0, at)).append(mark_.view());
    marked.append(rest);
    const bstr text(marked);
    attribute->put_nodeValue(VariantOf(text));
}

// Not the value, which MSXML would not keep as it is.
void SparseCut::MarkPlace(IXMLDOMNode* node) {
    com_ptr<IXMLDOMNode> parent;
    com_ptr<IXMLDOMNode> mark;
    VARIANT before;
    before.vt = VT_DISPATCH;
    before.pdispVal = node;
    if (node->get_parentNode(parent.put()) == S_OK && parent &&
        placeMark_->cloneNode(VARIANT_FALSE, mark.put()) == S_OK)
        parent->insertBefore(mark.get(), before, nullptr);
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
            WriteOther(walk.Markup(), walk.Kind() == XmlMarkup::Data);
    }
    return std::move(result_);
}

SparseCut::Marks SparseCut::ReadMarks(std::wstring_view tag) const {
    Marks marks;
    if (tag.find(mark_.view()) == std::wstring_view::npos)
        return marks;
    XmlAttributeWalk attributes(tag);
    while (attributes.Next()) {
        if (attributes.Name() == mark_.view())
            marks.element = true;
        else if (attributes.Value().substr(1).starts_with(mark_.view()))
            marks.attribute = true;
    }
    return marks;
}

void SparseCut::WriteStart(std::wstring_view tag, bool hasEndTag) {
    next_ = Next::AsUsual;
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
    next_ = Next::AsUsual;
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

void SparseCut::WriteOther(std::wstring_view markup, bool isData) {
    if (markup.substr(2).starts_with(mark_.view())) {
        next_ = Next::Selected;
        return;
    }
    const bool selected = next_ == Next::Selected || (next_ == Next::SelectedIfData && isData);
    next_ = selected && isData ? Next::SelectedIfData : Next::AsUsual;
    if (!selected && depthInSelected_ == 0)
        return;
    WriteAncestors();
    CloseTag();
    Append(markup);
}

void SparseCut::WriteText(std::wstring_view text) {
    if (text.empty())
        return;
    const bool selected = next_ == Next::Selected;
    next_ = Next::AsUsual;
    if (!selected && depthInSelected_ == 0)
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
    if (tag.find(mark_.view()) != std::wstring_view::npos) {
        XmlAttributeWalk attributes(tag);
        while (attributes.Next()) {
            const bool element = attributes.Name() == mark_.view();
            if (!element && !attributes.Value().substr(1).starts_with(mark_.view()))
                continue;
            const std::size_t value = attributes.end() - attributes.Value().size();
            AppendPlain(result_, tag.substr(written, (element ? attributes.begin() : value) - written));
            if (!element)
                WriteMarkedValue(attributes.Value());
            written = attributes.end();
        }
    }
    AppendPlain(result_, tag.substr(written));
}

void SparseCut::WriteMarkedValue(std::wstring_view value) {
    const std::size_t size = mark_.view().size();
    result_.append(value.substr(0, 1));
    value.remove_prefix(1 + size);
    for (std::size_t at; (at = value.find(mark_.view())) != std::wstring_view::npos;) {
        AppendPlain(result_, value.substr(0, at));
        result_.append(L"&#13;");
        value.remove_prefix(at + size);
    }
    AppendPlain(result_, value);
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
