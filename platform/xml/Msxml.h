// Creates MSXML documents.
#pragma once

#include "common/com/com_ptr.h"
#include "common/xml/msxml.h"

#include <string_view>

namespace keldan {

// Parses the text, including its white space; external entities are not resolved and nothing is validated. The text
// must have passed ScanXml and must not declare an encoding. Throws result_error: 0x8000012D if it is not well-formed.
// The document may be used on any thread, one at a time.
vorna::com_ptr<IXMLDOMDocument2> ParseXml(std::wstring_view text);

} // namespace keldan
