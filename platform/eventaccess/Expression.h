// Checks XPath 1.0 expressions of clients. One that is accepted keeps its meaning when it is put into parentheses or a
// predicate.
#pragma once

#include "platform/xml/XmlDocument.h"

#include <string_view>

namespace keldan {

// The largest number of characters in an expression.
inline constexpr std::size_t LONGEST_EXPRESSION = 8192;

// Whether the text is one expression that selects nodes. It may use any prefix.
[[nodiscard]] bool IsSelection(std::wstring_view expression);
// Whether the text is one expression, of any type.
[[nodiscard]] bool IsCondition(std::wstring_view expression);

// Adds the prefixes that the expression uses and the map does not have, each with a URI that no document declares:
// names with these prefixes then select nothing, while MSXML would refuse the whole expression.
void AddUnknownPrefixes(std::wstring_view expression, PrefixMap& prefixes);

} // namespace keldan
