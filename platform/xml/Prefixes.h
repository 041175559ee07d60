// The namespace prefixes that a caller's XPath uses.
#pragma once

#include "platform/xml/XmlDocument.h"

#include <string>
#include <string_view>

namespace keldan {

// Reads declarations separated by blanks: xmlns:a='uri', with quotes of either kind or none, or a='uri'. A default
// declaration (xmlns='uri') is accepted and ignored: XPath names cannot use it. False if the text is something else, or
// gives one prefix two URIs; message then quotes the place.
[[nodiscard]] bool ReadPrefixes(std::wstring_view text, PrefixMap& prefixes, std::wstring& message);

} // namespace keldan
