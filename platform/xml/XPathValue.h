// The four kinds of value of XPath 1.0 and how they turn into each other.
#pragma once

#include "platform/xml/XmlDocument.h"

#include <string>
#include <string_view>
#include <vector>

namespace keldan {

// Ascending, each node once: document order.
using node_set = std::vector<node_index>;

struct xpath_value {
    enum class Kind { Nodes, Number, Text, Flag };
    Kind kind = Kind::Flag;
    node_set nodes;
    double number = 0;
    std::wstring text;
    bool flag = false;

    static xpath_value OfNodes(node_set nodes);
    static xpath_value OfNumber(double number);
    static xpath_value OfText(std::wstring text);
    static xpath_value OfFlag(bool flag);
};

// Not a number where the text is none.
double NumberOfText(std::wstring_view text);
std::wstring TextOfNumber(double number);

} // namespace keldan
