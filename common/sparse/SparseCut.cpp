#include "common/sparse/SparseCut.h"

#include "common/com/com_ptr.h"
#include "common/com/scope_exit.h"
#include "common/sparse/SparseBuilder.h"
#include "common/xml/XmlTags.h"

#include <utility>

namespace vorna {

namespace {

VARIANT Borrowed(const bstr& text) {
    VARIANT value;
    value.vt = VT_BSTR;
    value.bstrVal = text.get();
    return value;
}

} // namespace

HRESULT SparseCut::Mark(IXMLDOMNode* selected) {
    DOMNodeType type = NODE_INVALID;
    // Namespace nodes are listed, but given as null.
    if (!selected || selected->get_nodeType(&type) != S_OK)
        return S_FALSE;
    switch (type) {
    case NODE_DOCUMENT: {
        com_ptr<IXMLDOMElement> root;
        auto document = com_ptr<IXMLDOMNode>(selected).try_as<IXMLDOMDocument>();
        if (!document || document->get_documentElement(root.put()) != S_OK || !root)
            return S_FALSE;
        belowRoot_ = true;
        return root->setAttribute(attribute_.get(), Borrowed(whole_));
    }
    case NODE_ELEMENT:
        if (!belowRoot_ && !SparseBuilder::MayStandAlone(selected))
            return S_FALSE;
        belowRoot_ = true;
        return MarkElement(selected);
    case NODE_ATTRIBUTE:
        belowRoot_ = true;
        return MarkAttribute(selected);
    case NODE_TEXT:
    case NODE_CDATA_SECTION:
        belowRoot_ = true;
        return MarkCharacters(selected);
    case NODE_COMMENT:
        return SparseBuilder::MayStandAlone(selected) ? MarkCharacters(selected) : S_FALSE;
    case NODE_PROCESSING_INSTRUCTION:
        return SparseBuilder::MayStandAlone(selected) ? MarkInstruction(selected) : S_FALSE;
    default:
        return S_FALSE;
    }
}

HRESULT SparseCut::MarkElement(IXMLDOMNode* node) {
    auto element = com_ptr<IXMLDOMNode>(node).try_as<IXMLDOMElement>();
    return element ? element->setAttribute(attribute_.get(), Borrowed(whole_)) : S_FALSE;
}

HRESULT SparseCut::MarkAttribute(IXMLDOMNode* node) {
    VARIANT value;
    VariantInit(&value);
    scope_exit clear([&] { VariantClear(&value); });
    if (node->get_nodeValue(&value) != S_OK || value.vt != VT_BSTR)
        return S_FALSE;
    bstr marked(std::wstring(token_).append(view_of(value.bstrVal)));
    return node->put_nodeValue(Borrowed(marked));
}

HRESULT SparseCut::MarkCharacters(IXMLDOMNode* node) {
    auto characters = com_ptr<IXMLDOMNode>(node).try_as<IXMLDOMCharacterData>();
    bstr token(token_);
    return characters ? characters->insertData(0, token.get()) : S_FALSE;
}

HRESULT SparseCut::MarkInstruction(IXMLDOMNode* node) {
    auto instruction = com_ptr<IXMLDOMNode>(node).try_as<IXMLDOMProcessingInstruction>();
    bstr data;
    if (!instruction || instruction->get_data(data.put()) != S_OK)
        return S_FALSE;
    bstr marked(std::wstring(token_).append(data.view()));
    return instruction->put_data(marked.get());
}

std::wstring SparseCut::Write(std::wstring_view text, bool keepReturns) {
    keepReturns_ = keepReturns;
    text_.clear();
    open_.clear();
    written_ = 0;
    inside_ = 0;
    tagOpen_ = false;
    XmlMarkupWalk walk(text);
    std::size_t read = 0;
    while (walk.Next()) {
        WriteRun(text.substr(read, walk.begin() - read));
        read = walk.end();
        if (walk.OpensElement())
            WriteElement(walk.Markup(), walk.Kind() == XmlMarkup::StartTag);
        else if (walk.Kind() == XmlMarkup::EndTag)
            WriteEnd(walk.Markup());
        else
            WriteOther(walk.Markup());
    }
    return std::move(text_);
}

SparseCut::Marks SparseCut::ReadMarks(std::wstring_view tag) const {
    Marks marks;
    if (tag.find(name_) == std::wstring_view::npos)
        return marks;
    XmlAttributeWalk attributes(tag);
    while (attributes.Next()) {
        std::wstring_view value = attributes.Value().substr(1);
        // Other marks of the name are what an abandoned SparseBuilder left.
        if (attributes.Name() == name_)
            marks.whole = value.starts_with(whole_.view());
        else if (value.starts_with(token_))
            marks.attribute = true;
    }
    return marks;
}

void SparseCut::WriteElement(std::wstring_view tag, bool opens) {
    Marks marks = ReadMarks(tag);
    if (inside_ > 0 || marks.whole) {
        WriteAncestors();
        WriteTag(tag);
        if (opens)
            ++inside_;
    } else if (opens) {
        open_.push_back(tag);
        if (marks.attribute)
            WriteAncestors();
    } else if (marks.attribute) {
        WriteAncestors();
        WriteTag(tag);
    }
}

void SparseCut::WriteEnd(std::wstring_view tag) {
    if (inside_ > 0) {
        --inside_;
        Append(tag);
        return;
    }
    if (open_.empty())
        return;
    open_.pop_back();
    if (written_ <= open_.size())
        return;
    written_ = open_.size();
    Append(tagOpen_ ? L"/>" : tag);
    tagOpen_ = false;
}

void SparseCut::WriteOther(std::wstring_view markup) {
    // Content cannot look like a token: its name stands nowhere in the source.
    std::size_t token = markup.find(token_);
    if (token == std::wstring_view::npos) {
        if (inside_ > 0)
            Append(markup);
        return;
    }
    WriteAncestors();
    CloseTag();
    Append(markup.substr(0, token));
    Append(markup.substr(token + token_.size()));
}

void SparseCut::WriteRun(std::wstring_view run) {
    bool marked = run.starts_with(token_);
    if (marked)
        run.remove_prefix(token_.size());
    if (inside_ == 0 && !marked)
        return;
    WriteAncestors();
    CloseTag();
    Append(run);
}

void SparseCut::WriteAncestors() {
    for (; written_ < open_.size(); ++written_) {
        CloseTag();
        std::wstring_view tag = open_[written_];
        WriteTag(tag.substr(0, tag.size() - 1));
        tagOpen_ = true;
    }
}

void SparseCut::CloseTag() {
    if (tagOpen_)
        Append(L">");
    tagOpen_ = false;
}

void SparseCut::WriteTag(std::wstring_view tag) {
    CloseTag();
    if (tag.find(name_) == std::wstring_view::npos) {
        Append(tag);
        return;
    }
    std::size_t written = 0;
    XmlAttributeWalk attributes(tag);
    while (attributes.Next()) {
        bool mark = attributes.Name() == name_;
        if (!mark && !attributes.Value().substr(1).starts_with(token_))
            continue;
        // The token stands behind the opening quote.
        std::size_t quote = attributes.end() - attributes.Value().size();
        Append(tag.substr(written, (mark ? attributes.begin() : quote + 1) - written));
        written = mark ? attributes.end() : quote + 1 + token_.size();
    }
    Append(tag.substr(written));
}

void SparseCut::Append(std::wstring_view piece) {
    AppendLines(text_, piece, keepReturns_);
}

} // namespace vorna
