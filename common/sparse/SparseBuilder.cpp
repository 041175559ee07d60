#include "common/sparse/SparseBuilder.h"

#include "common/com/scope_exit.h"
#include "common/log/Logging.h"

#include <atomic>
#include <cwchar>
#include <string>

namespace vorna {

namespace {

bool HasOneChild(IXMLDOMNode* document) {
    com_ptr<IXMLDOMNodeList> children;
    long count = 0;
    if (document->get_childNodes(children.put()) == S_OK && children->get_length(&count) == S_OK && count == 1)
        return true;
    VORNA_LOG(LOG_TRACE, "nodeList->get_length failed l1 value returned is not 1");
    return false;
}

bool IsDocument(IXMLDOMNode* node) {
    DOMNodeType type = NODE_INVALID;
    return node->get_nodeType(&type) == S_OK && type == NODE_DOCUMENT;
}

// One counter for the module. Two builds never meet in one document, so the order between threads does not matter.
std::atomic<int> nextMark{1};

} // namespace

HRESULT SparseBuilder::Mount(IXMLDOMNode* selected) {
    // Namespace nodes are listed, but given as null.
    if (!selected)
        return S_FALSE;
    com_ptr<IXMLDOMNode> node(selected);
    com_ptr<IXMLDOMNode> parent;
    selected->get_parentNode(parent.put());
    bool attribute = false;
    bool document = false;
    if (!parent) {
        DOMNodeType type = NODE_INVALID;
        selected->get_nodeType(&type);
        bstr above(L"..");
        if (type == NODE_DOCUMENT) {
            document = true;
            com_ptr<IXMLDOMElement> root;
            if (auto owner = node.try_as<IXMLDOMDocument>())
                owner->get_documentElement(root.put());
            node = root.try_as<IXMLDOMNode>();
            if (!node)
                return S_FALSE;
        } else if (selected->selectSingleNode(above.get(), parent.put()) == S_OK && parent) {
            attribute = true;
        } else {
            return S_FALSE;
        }
    }
    ancestors_.clear();
    if (document)
        copies_.clear();
    else if (!Climb(std::move(parent)))
        return S_FALSE;
    if (LiesInsideLast())
        return S_OK;
    last_.reset();
    inside_ = 0;
    if (!CopyAncestors())
        return S_FALSE;
    return attribute || CopyWhole(node.get()) ? S_OK : S_FALSE;
}

bool SparseBuilder::MayStandAlone(IXMLDOMNode* selected) {
    com_ptr<IXMLDOMNode> parent;
    return selected->get_parentNode(parent.put()) != S_OK || !parent || !IsDocument(parent.get()) ||
           HasOneChild(parent.get());
}

bool SparseBuilder::Climb(com_ptr<IXMLDOMNode> parent) {
    std::size_t keep = 0;
    for (com_ptr<IXMLDOMNode> at = std::move(parent); at;) {
        auto element = at.try_as<IXMLDOMElement>();
        if (!element) {
            if (!IsDocument(at.get())) {
                VORNA_LOG(LOG_TRACE, "QueryInterface of MSXML2::IXMLDOMElement failed");
                return false;
            }
            if (ancestors_.empty() && !HasOneChild(at.get()))
                return false;
            break;
        }
        int number = ReadMark(element.get());
        if (number != 0) {
            // What lies inside the last node is below every copy.
            if (number == inside_) {
                ancestors_.push_back({std::move(element), number});
                return true;
            }
            for (keep = copies_.size(); keep > 0 && copies_[keep - 1].number != number;)
                --keep;
            if (keep > 0)
                break;
        }
        com_ptr<IXMLDOMNode> above;
        element->get_parentNode(above.put());
        ancestors_.push_back({std::move(element), number});
        at = std::move(above);
    }
    if (keep < copies_.size()) {
        copies_.resize(keep);
        last_.reset();
        inside_ = 0;
    }
    return true;
}

bool SparseBuilder::LiesInsideLast() {
    if (!last_ || ancestors_.empty())
        return false;
    Ancestor& top = ancestors_.back();
    if (inside_ == 0) {
        // Asked only now: most nodes have siblings, not descendants, among those that follow.
        auto element = last_.try_as<IXMLDOMElement>();
        if (!element)
            return false;
        inside_ = nextMark.fetch_add(1, std::memory_order_relaxed);
        WriteMark(element.get(), inside_);
        top.number = ReadMark(top.source.get());
    }
    if (top.number != inside_)
        return false;
    // Marked all the way, so that no element is climbed twice.
    for (const Ancestor& ancestor : ancestors_)
        if (ancestor.number != inside_)
            WriteMark(ancestor.source.get(), inside_);
    return true;
}

bool SparseBuilder::CopyAncestors() {
    for (auto ancestor = ancestors_.rbegin(); ancestor != ancestors_.rend(); ++ancestor) {
        if (ancestor->number != 0) {
            if (auto copy = FindCopy(ancestor->number)) {
                copies_.push_back({ancestor->number, std::move(copy)});
                continue;
            }
        }
        if (!CopyAncestor(*ancestor))
            return false;
    }
    return true;
}

bool SparseBuilder::CopyAncestor(Ancestor& ancestor) {
    if (ancestor.number == 0) {
        ancestor.number = nextMark.fetch_add(1, std::memory_order_relaxed);
        WriteMark(ancestor.source.get(), ancestor.number);
    }
    // A clone without its children has the mark, the name, the namespace and every attribute, prefixed ones and
    // declarations of prefixes included.
    com_ptr<IXMLDOMNode> copy;
    if (ancestor.source->cloneNode(VARIANT_FALSE, copy.put()) != S_OK || !copy) {
        VORNA_LOG(LOG_TRACE, "node->cloneNode failed");
        return false;
    }
    if (!Append(copy.get())) {
        VORNA_LOG(LOG_TRACE, "documentNode->appendChild failed");
        return false;
    }
    if (auto element = copy.try_as<IXMLDOMElement>())
        marked_.push_back(std::move(element));
    copies_.push_back({ancestor.number, std::move(copy)});
    elements_.push_back(false);
    return true;
}

bool SparseBuilder::CopyWhole(IXMLDOMNode* selected) {
    com_ptr<IXMLDOMNode> copy;
    if (selected->cloneNode(VARIANT_TRUE, copy.put()) != S_OK || !copy) {
        VORNA_LOG(LOG_TRACE, "node->cloneNode failed");
        return false;
    }
    if (!Append(copy.get())) {
        VORNA_LOG(LOG_TRACE, "documentNode->appendChild Failed");
        return false;
    }
    last_ = com_ptr<IXMLDOMNode>(selected);
    DOMNodeType type = NODE_INVALID;
    selected->get_nodeType(&type);
    if (type == NODE_ELEMENT)
        elements_.push_back(true);
    return true;
}

bool SparseBuilder::Append(IXMLDOMNode* copy) const {
    // A document has one root element; not every implementation of MSXML sees to it.
    com_ptr<IXMLDOMElement> root;
    if (copies_.empty() && target_->get_documentElement(root.put()) == S_OK && root)
        return false;
    return Bottom()->appendChild(copy, nullptr) == S_OK;
}

com_ptr<IXMLDOMNode> SparseBuilder::FindCopy(int number) const {
    com_ptr<IXMLDOMNode> copy;
    // In document order the copy is the last child so far.
    Bottom()->get_lastChild(copy.put());
    auto element = copy.try_as<IXMLDOMElement>();
    if (element && ReadMark(element.get()) == number)
        return copy;
    // The number says which element it is: no name, and so no prefix, is needed.
    bstr path(L"*[@" + mark_.str() + L"='" + std::to_wstring(number) + L"']");
    if (Bottom()->selectSingleNode(path.get(), copy.put()) != S_OK)
        copy.reset();
    return copy;
}

int SparseBuilder::ReadMark(IXMLDOMElement* element) const {
    VARIANT value;
    VariantInit(&value);
    scope_exit clear([&] { VariantClear(&value); });
    if (element->getAttribute(mark_.get(), &value) != S_OK || value.vt != VT_BSTR || !value.bstrVal)
        return 0;
    return static_cast<int>(std::wcstol(value.bstrVal, nullptr, 10));
}

void SparseBuilder::WriteMark(IXMLDOMElement* element, int number) const {
    bstr text(std::to_wstring(number));
    VARIANT value;
    value.vt = VT_BSTR;
    value.bstrVal = text.get();
    element->setAttribute(mark_.get(), value);
}

void SparseBuilder::RemoveMarks() {
    for (const auto& element : marked_)
        element->removeAttribute(mark_.get());
    marked_.clear();
}

void SparseBuilder::RemoveMarks(IXMLDOMDocument2* target, std::wstring_view mark) {
    const bstr name(mark);
    const bstr path(L"//*[@" + name.str() + L"]");
    com_ptr<IXMLDOMNodeList> nodes;
    long count = 0;
    if (target->selectNodes(path.get(), nodes.put()) != S_OK || nodes->get_length(&count) != S_OK)
        return;
    // Collected first: a list may be read from the document as it goes.
    std::vector<com_ptr<IXMLDOMElement>> elements;
    for (long i = 0; i < count; ++i) {
        com_ptr<IXMLDOMNode> node;
        nodes->get_item(i, node.put());
        if (auto element = node.try_as<IXMLDOMElement>())
            elements.push_back(std::move(element));
    }
    for (const auto& element : elements)
        element->removeAttribute(name.get());
}

} // namespace vorna
