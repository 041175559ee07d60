// XPath 1.0 split into tokens, for what must be known of an expression before it is evaluated.
#pragma once

#include <set>
#include <string_view>
#include <vector>

namespace vorna {

enum class XPathTokenKind {
    // A name with or without a prefix, "prefix:*" and the "*" that stands for any name.
    Name,
    Number,
    // With its quotes.
    Literal,
    // Operators with a left operand, "and" and "*" for multiplication included; not "/" and "//".
    Operator,
    // Everything else: brackets, "/", "//", ".", "..", "@", "::", ",", "$".
    Symbol,
    End
};

struct XPathToken {
    XPathTokenKind kind = XPathTokenKind::End;
    // Points into the expression.
    std::wstring_view text;
};

// The tokens, with one of the kind End after the last. They end early at a character that begins no token and at a
// literal without an end: such an expression is not XPath.
std::vector<XPathToken> TokenizeXPath(std::wstring_view xpath);

// The namespace prefixes that the expression uses.
std::set<std::wstring_view> PrefixesOf(const std::vector<XPathToken>& tokens);

} // namespace vorna
