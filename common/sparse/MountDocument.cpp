// MountDocument and RemoveIdNode of SparseXml.h: sparse documents that are built node by node.
#include "common/com/scope_exit.h"
#include "common/log/CatchAll.h"
#include "common/sparse/MsxmlDocument.h"
#include "common/sparse/SparseXml.h"

#include <atomic>
#include <string>
#include <vector>

namespace VORNAUTILITY {

namespace {

using namespace vorna;

constexpr wchar_t MARK[] = L"idNode";

// One counter for the module. Marks are compared within one document only, so the order between threads is irrelevant.
std::atomic<int> nextMark{1};

// The element's mark, added if it has none.
std::wstring MarkOf(IXMLDOMElement* element) {
    const bstr name(MARK);
    VARIANT value;
    VariantInit(&value);
    const scope_exit clear([&] { VariantClear(&value); });
    if (element->getAttribute(name.get(), &value) == S_OK && value.vt == VT_BSTR)
        return std::wstring(view_of(value.bstrVal));
    const bstr mark(std::to_wstring(nextMark.fetch_add(1, std::memory_order_relaxed)));
    element->setAttribute(name.get(), VariantOf(mark));
    return mark.str();
}

// The elements from the node up to the root element. False if one of them is not an element (logged).
bool CollectAncestors(com_ptr<IXMLDOMNode> node, std::vector<com_ptr<IXMLDOMElement>>& ancestors) {
    DOMNodeType type = NODE_INVALID;
    while (node && node->get_nodeType(&type) == S_OK && type != NODE_DOCUMENT) {
        auto element = node.try_as<IXMLDOMElement>();
        if (!element) {
            VORNA_LOG(LOG_TRACE, "QueryInterface of MSXML2::IXMLDOMElement failed");
            return false;
        }
        com_ptr<IXMLDOMNode> parent;
        element->get_parentNode(parent.put());
        ancestors.push_back(std::move(element));
        node = std::move(parent);
    }
    return true;
}

// Appends a copy of the node, with its content if deep; null on failure (logged).
com_ptr<IXMLDOMNode> AppendCopy(IXMLDOMNode* node, VARIANT_BOOL deep, IXMLDOMNode* parent) {
    com_ptr<IXMLDOMNode> copy;
    if (node->cloneNode(deep, copy.put()) != S_OK || !copy) {
        VORNA_LOG(LOG_TRACE, "node->cloneNode failed");
        return {};
    }
    // Not every version of MSXML refuses a second root element.
    if (RootElement(parent) || parent->appendChild(copy.get(), nullptr) != S_OK) {
        if (deep)
            VORNA_LOG(LOG_TRACE, "documentNode->appendChild Failed");
        else
            VORNA_LOG(LOG_TRACE, "documentNode->appendChild failed");
        return {};
    }
    return copy;
}

// The copy of the ancestor below the copy of its parent, made if there is none yet; null on failure (logged).
com_ptr<IXMLDOMNode> MountAncestor(IXMLDOMElement* ancestor, IXMLDOMNode* parent) {
    com_ptr<IXMLDOMNode> copy;
    // Found by the mark alone: a prefixed name would have to be declared in the target, and an unprefixed one does not
    // match elements of a default namespace.
    const bstr path(L"*[@" + std::wstring(MARK) + L"='" + MarkOf(ancestor) + L"']");
    if (parent->selectSingleNode(path.get(), copy.put()) == S_OK && copy)
        return copy;
    // A clone has all attributes, prefixed ones and namespace declarations included.
    return AppendCopy(ancestor, VARIANT_FALSE, parent);
}

bool Mount(IXMLDOMNode* selected, IXMLDOMDocument2* target) {
    DOMNodeType type = NODE_INVALID;
    selected->get_nodeType(&type);
    if (type == NODE_DOCUMENT) {
        const auto root = RootElement(selected);
        return root && AppendCopy(root.get(), VARIANT_TRUE, target);
    }
    com_ptr<IXMLDOMNode> parent;
    if (type == NODE_ATTRIBUTE) {
        // An attribute has no parent node; only XPath treats its owner element as one.
        const bstr owner(L"..");
        selected->selectSingleNode(owner.get(), parent.put());
    } else if (MayStandAlone(selected)) {
        selected->get_parentNode(parent.put());
    }
    std::vector<com_ptr<IXMLDOMElement>> ancestors;
    if (!parent || !CollectAncestors(std::move(parent), ancestors))
        return false;
    com_ptr<IXMLDOMNode> copy(target);
    for (auto ancestor = ancestors.rbegin(); copy && ancestor != ancestors.rend(); ++ancestor)
        copy = MountAncestor(ancestor->get(), copy.get());
    return copy && (type == NODE_ATTRIBUTE || AppendCopy(selected, VARIANT_TRUE, copy.get()));
}

} // namespace

HRESULT MountDocument(IXMLDOMNode* selected, IXMLDOMDocument2* target) {
    return CatchAll("VORNAUTILITY::MountDocument", S_FALSE, [&]() -> HRESULT {
        if (!selected || !target)
            return E_POINTER;
        return Mount(selected, target) ? S_OK : S_FALSE;
    });
}

void RemoveIdNode(IXMLDOMDocument2* target) {
    CatchAll(
        "VORNAUTILITY::RemoveIdNode", [] {},
        [&] {
            const bstr name(MARK);
            const bstr path(L"//*[@" + name.str() + L"]");
            com_ptr<IXMLDOMNodeList> nodes;
            if (!target || target->selectNodes(path.get(), nodes.put()) != S_OK)
                return;
            long count = 0;
            nodes->get_length(&count);
            // Collected first, because the list may follow changes of the document.
            std::vector<com_ptr<IXMLDOMElement>> elements;
            for (long i = 0; i < count; ++i) {
                com_ptr<IXMLDOMNode> node;
                nodes->get_item(i, node.put());
                if (auto element = node.try_as<IXMLDOMElement>())
                    elements.push_back(std::move(element));
            }
            for (const auto& element : elements)
                element->removeAttribute(name.get());
        });
}

} // namespace VORNAUTILITY
