// MSXML's documents: made by a class object that the process looks up once.
#pragma once

#include "common/com/com_ptr.h"
#include "common/xml/msxml.h"

#include <string_view>

namespace keldan {

// A parsed document with its white space; external entities are not resolved, nothing is validated. The text has passed
// ScanXml and has no XML declaration that names an encoding. Throws result_error: 0x8000012D where it is not
// well-formed. Usable on any thread, one at a time.
vorna::com_ptr<IXMLDOMDocument2> ParseXml(std::wstring_view text);

} // namespace keldan
