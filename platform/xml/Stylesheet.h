// XSLT stylesheets from files, run by MSXML.
#pragma once

#include <string>
#include <string_view>

namespace keldan {

// Turns a well-formed document without a document type definition by a stylesheet, which is named by its full path on a
// drive. The stylesheet is refused, by failure with E_ACCESSDENIED, where its path is another one, where it holds
// scripts, imports or includes, extension elements, or calls document() or extension functions other than node-set();
// with 0x8000012D where it is not well-formed, has a document type definition or is in another encoding than UTF-8,
// UTF-16, ISO-8859-1 or US-ASCII; with 0x800700DF (ERROR_FILE_TOO_LARGE) over MAXIMUM_STYLESHEET_BYTES. One that does
// not end within MAXIMUM_TRANSFORM_MILLISECONDS fails with 0x800705B4 (ERROR_TIMEOUT); its thread goes on with the
// lowest priority.
std::wstring Transform(std::wstring_view document, const std::wstring& stylesheetFile);

inline constexpr unsigned long MAXIMUM_STYLESHEET_BYTES = 4 * 1024 * 1024;
inline constexpr unsigned long MAXIMUM_TRANSFORM_MILLISECONDS = 30'000;

} // namespace keldan
