// The namespace prefixes that a caller's XPath uses.
#pragma once

#include "platform/xml/XmlDocument.h"

#include <string>
#include <string_view>

namespace keldan {

// Reads declarations that blanks part: xmlns:a='uri', with either kind of quotes or none, and a='uri' for short. A
// default declaration (xmlns='uri') is taken and dropped: XPath names cannot use it. False where the text is something
// else, or gives one prefix two URIs; message then names the place.
[[nodiscard]] bool ReadPrefixes(std::wstring_view text, PrefixMap& prefixes, std::wstring& message);

} // namespace keldan
