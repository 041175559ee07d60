// The text of a file that somebody else wrote.
#pragma once

#include <string>
#include <string_view>

namespace vorna {

// Decodes UTF-8 and UTF-16 with or without a byte order mark, and takes the XML declaration off. False where the bytes
// are no text in these encodings or the declaration names another one; message then says so.
[[nodiscard]] bool DecodeXmlText(std::string_view bytes, std::wstring& text, std::wstring& message);

// The text as UTF-8; false where it holds halves of surrogate pairs.
[[nodiscard]] bool EncodeUtf8(std::wstring_view text, std::string& bytes);

} // namespace vorna
