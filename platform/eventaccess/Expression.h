// XPath 1.0 expressions from clients, looked at by themselves: one that is accepted here means the same wherever
// parentheses are put around it.
#pragma once

#include "platform/xml/XmlDocument.h"

#include <string_view>

namespace keldan {

// Characters of an expression, at most.
inline constexpr std::size_t LONGEST_EXPRESSION = 8192;

// Whether the text is one expression that selects nodes. Prefixes may be declared anywhere.
[[nodiscard]] bool IsSelection(std::wstring_view expression);
// Whether the text is one expression, of whatever type.
[[nodiscard]] bool IsCondition(std::wstring_view expression);

// Adds the prefixes that the expression uses and the map does not know, each with a URI that no document declares:
// names with them then select nothing, where MSXML would refuse the whole expression.
void AddUnknownPrefixes(std::wstring_view expression, PrefixMap& prefixes);

} // namespace keldan
