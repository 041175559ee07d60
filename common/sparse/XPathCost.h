// Estimates how long MSXML would take for an XPath, because nothing can interrupt it.
#pragma once

#include "common/sparse/DocumentShape.h"
#include "common/xml/XPathTokens.h"

#include <string_view>
#include <vector>

namespace vorna {

// The number of nodes that evaluating the expression visits at most, and what else takes as long. Not a promise of the
// time to a factor of ten, but every factor that grows with the document is in it. Without meaning if the expression is
// not XPath.
double XPathCost(const std::vector<XPathToken>& xpath, const DocumentShape& shape);

// Whether MSXML would take too long: more than 1,000,000,000 visits, some minutes. xml: well-formed.
// Linear in xml, and does not read it for most expressions.
bool TakesTooLong(const std::vector<XPathToken>& xpath, std::wstring_view xml);

} // namespace vorna
