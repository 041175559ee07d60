// Documents in files: UTF-8 or UTF-16, with or without a byte order mark.
#pragma once

#include <string>
#include <string_view>

namespace vornactl {

// The document in a file, without its byte order mark and XML declaration: the text has no encoding any more that a
// declaration could name. Throws Failure, with the file's name, where it cannot be read, is empty or is no such text.
std::wstring ReadDocument(const std::wstring& path);

// Writes the text as UTF-8 and replaces what is there. Throws Failure with the file's name.
void WriteDocument(const std::wstring& path, std::wstring_view text);

// The text of a file's bytes; path is for the message. Throws Failure.
std::wstring DecodeDocument(std::string_view bytes, const std::wstring& path);

// Halves of surrogate pairs become the replacement character.
std::string EncodeUtf8(std::wstring_view text);

} // namespace vornactl
