// XML documents in files: UTF-8 or UTF-16, with or without a byte order mark, and ISO 8859-1 if it is declared.
#pragma once

#include <string>
#include <string_view>

namespace vornactl {

// The document in a file without its XML declaration. Throws Failure, with the file's name, if the file cannot be read,
// is empty or is not text in a known encoding.
std::wstring ReadDocument(const std::wstring& path);

// Writes the text as UTF-8; replaces an existing file. Throws Failure with the file's name.
void WriteDocument(const std::wstring& path, std::wstring_view text);

} // namespace vornactl
