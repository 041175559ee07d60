// XSLT stylesheets in files, run by MSXML.
#pragma once

#include <string>
#include <string_view>

namespace keldan {

// Transforms a well-formed document without a document type definition by a stylesheet, which is named by its full path
// on a drive. Throws result_error: E_ACCESSDENIED if the path is another one, or the stylesheet contains scripts,
// imports or includes, extension elements, or calls of document() or of extension functions other than node-set();
// 0x8000012D if it is not well-formed, has a document type definition or another encoding than UTF-8, UTF-16,
// ISO-8859-1 or US-ASCII; 0x800700DF (ERROR_FILE_TOO_LARGE) over MAXIMUM_STYLESHEET_BYTES; 0x800705B4 (ERROR_TIMEOUT)
// if the transformation does not end within MAXIMUM_TRANSFORM_MILLISECONDS; its thread then continues with the lowest
// priority.
std::wstring Transform(std::wstring_view document, const std::wstring& stylesheetFile);

inline constexpr unsigned long MAXIMUM_STYLESHEET_BYTES = 4 * 1024 * 1024;
inline constexpr unsigned long MAXIMUM_TRANSFORM_MILLISECONDS = 30'000;

} // namespace keldan
