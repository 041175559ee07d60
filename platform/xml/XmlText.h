// Foreign text on its way into markup.
#pragma once

#include <string>
#include <string_view>

namespace keldan {

// Appends the text so that it reads back the same inside an element or a quoted attribute value. Characters that XML
// cannot hold (most control characters, halves of surrogate pairs) are dropped.
void AppendEscaped(std::wstring& markup, std::wstring_view text);

} // namespace keldan
