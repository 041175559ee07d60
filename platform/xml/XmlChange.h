// The text of a document after a change to one of its nodes.
#pragma once

#include "platform/xml/XmlDocument.h"

#include <string>
#include <string_view>

namespace keldan {

// As the modes of the accessor's Set.
enum class ChangeMode : long { Insert = 1, Append = 2, Replace = 3 };

// The changed document's text, without an XML declaration; the rest of it stays letter for letter. Markup without a
// "<" that is not well-formed by itself is taken as plain text. Throws failure: 0x8000012D where the markup is not
// balanced, E_INVALIDARG where the node cannot hold children. Whether the whole is a document is for its parser to say.
std::wstring ChangedText(const XmlDocument& document, node_index node, std::wstring_view markup, ChangeMode mode);

} // namespace keldan
