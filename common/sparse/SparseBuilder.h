// Builds a sparse document: selected nodes, each whole, under copies of their ancestors without their other children.
//
// Every source element that was copied as an ancestor is marked by an attribute with a number, which is how a later
// node finds the copy (the object model gives no identity to compare). For nodes in document order a builder remembers
// the copies above the last node, so that each element is climbed, marked and copied once and a node costs the same
// however long the document is. One thread at a time.
#pragma once

#include "common/com/bstr.h"
#include "common/com/com_ptr.h"
#include "common/xml/msxml.h"

#include <string_view>
#include <vector>

namespace vorna {

class SparseBuilder {
  public:
    // mark: an attribute name that the source has nowhere. Copies carry it too, until RemoveMarks.
    SparseBuilder(com_ptr<IXMLDOMDocument2> target, std::wstring_view mark) : target_(std::move(target)), mark_(mark) {}

    // Copies one node and those of its ancestors that the target lacks.
    // - A node inside a node that was mounted before it is already there.
    // - An attribute is given by its owner element, copied as an ancestor is: with all its attributes, without content.
    // - The document node stands for the root element.
    // S_FALSE: the node was not mounted (logged); the target is as far as it was built.
    HRESULT Mount(IXMLDOMNode* selected);

    // Removes the marks of this builder from the target.
    void RemoveMarks();
    // Removes every attribute of the name from the target.
    static void RemoveMarks(IXMLDOMDocument2* target, std::wstring_view mark);

    // False where the node stands beside others directly under the document; such a node is not mounted (logged).
    static bool MayStandAlone(IXMLDOMNode* selected);

    // The elements made so far, in the order of their start tags, and whether each was copied whole.
    const std::vector<bool>& Elements() const { return elements_; }

  private:
    struct Ancestor {
        com_ptr<IXMLDOMElement> source;
        // 0: not marked, so without a copy.
        int number = 0;
    };
    struct Copy {
        int number = 0;
        com_ptr<IXMLDOMNode> node;
    };

    // Collects the ancestors from parent up to the first whose copy is remembered, and forgets the copies below that.
    bool Climb(com_ptr<IXMLDOMNode> parent);
    // Whether the ancestors collected lead to the node mounted last.
    bool LiesInsideLast();
    bool CopyAncestors();
    bool CopyAncestor(Ancestor& ancestor);
    bool CopyWhole(IXMLDOMNode* selected);
    bool Append(IXMLDOMNode* copy) const;
    com_ptr<IXMLDOMNode> FindCopy(int number) const;
    int ReadMark(IXMLDOMElement* element) const;
    void WriteMark(IXMLDOMElement* element, int number) const;
    IXMLDOMNode* Bottom() const { return copies_.empty() ? target_.get() : copies_.back().node.get(); }

    com_ptr<IXMLDOMDocument2> target_;
    bstr mark_;
    // The copies above the node mounted last, from the top.
    std::vector<Copy> copies_;
    // Of the node being mounted, from the bottom.
    std::vector<Ancestor> ancestors_;
    // The node mounted last, while its parent is the bottom copy; the number that marks what lies inside it, or 0.
    com_ptr<IXMLDOMNode> last_;
    int inside_ = 0;
    std::vector<com_ptr<IXMLDOMElement>> marked_;
    std::vector<bool> elements_;
};

} // namespace vorna
