// What decides how many nodes an XPath visits in a document.
#pragma once

#include <cstddef>
#include <map>
#include <set>
#include <string_view>

namespace vorna {

struct DocumentShape {
    // For the elements of one name. Figures are double, since they are multiplied without regard to overflow.
    struct Elements {
        double count = 0;
        // At most below one parent.
        double ofOneParent = 0;
        // At most that many nodes are visited to the next of them, among siblings and in the whole document.
        double siblingGap = 0;
        double documentGap = 0;
    };

    // Bounds for the documents of this size.
    static DocumentShape Largest(std::size_t characters);

    // names: the local names that are counted on their own, and "*"; at most 32 are. xml: well-formed.
    static DocumentShape Of(std::wstring_view xml, const std::set<std::wstring_view>& names);

    // The elements of the name; of a name that was not counted, bounds.
    Elements Named(std::wstring_view localName) const;

    // Attributes are not nodes here.
    double nodes = 0;
    double attributes = 0;
    // At most below one node.
    double children = 0;
    double attributesOfOne = 0;
    // Nodes above the deepest one, itself included; and the sum of that over all nodes.
    double depth = 0;
    double depths = 0;
    // The size of the document's text, in what takes as long as visiting a node.
    double text = 0;
    std::map<std::wstring_view, Elements> elements;
};

} // namespace vorna
