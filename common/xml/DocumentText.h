// Conversion between the bytes of XML files and their text.
#pragma once

#include <string>
#include <string_view>

namespace vorna {

// Decodes UTF-8 and UTF-16, with or without a byte order mark, and ISO 8859-1 if the XML declaration names it. The
// declaration is removed: the decoded text no longer has the encoding that it names. False if the bytes are not text
// in these encodings, the declaration names another one, or the text has a zero character; message then has the reason,
// as the end of a sentence.
[[nodiscard]] bool DecodeXmlText(std::string_view bytes, std::wstring& text, std::wstring& message);

// The text as UTF-8. False if it has unpaired surrogates; bytes then has replacement characters for them.
[[nodiscard]] bool EncodeUtf8(std::wstring_view text, std::string& bytes);

} // namespace vorna
