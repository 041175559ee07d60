#include "common/xml/DocumentText.h"

#include <gtest/gtest.h>

using namespace std::string_literals;

namespace {

std::string Utf16(std::wstring_view text, bool bigEndian) {
    std::string bytes;
    for (const wchar_t c : text) {
        const char low = static_cast<char>(c & 0xFF), high = static_cast<char>(c >> 8);
        bytes += {bigEndian ? high : low, bigEndian ? low : high};
    }
    return bytes;
}

TEST(DocumentText, ReadsEveryEncodingWithAndWithoutMark) {
    const std::wstring expected = L"<a>\u00FC</a>";
    const std::string utf8 = "<a>\xC3\xBC</a>";
    for (const std::string& bytes :
         {utf8, "\xEF\xBB\xBF" + utf8, "<?xml version='1.0' encoding='UTF-8'?>" + utf8, Utf16(expected, false),
          Utf16(L"\xFEFF" + expected, false), Utf16(expected, true), Utf16(L"\xFEFF" + expected, true),
          Utf16(L"<?xml version='1.0' encoding='UTF-16'?>" + expected, true),
          "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a>\xFC</a>"s}) {
        std::wstring text, message;
        EXPECT_TRUE(vorna::DecodeXmlText(bytes, text, message));
        EXPECT_EQ(expected, text);
    }
}

TEST(DocumentText, KeepsInstructionsThatOnlyBeginLikeADeclaration) {
    std::wstring text, message;
    EXPECT_TRUE(vorna::DecodeXmlText("<?xml-stylesheet href='a'?><a/>", text, message));
    EXPECT_EQ(L"<?xml-stylesheet href='a'?><a/>", text);
}

TEST(DocumentText, RefusesOtherBytesWithTheReason) {
    const std::pair<std::string, const wchar_t*> cases[] = {
        {"<a>\xFC</a>", L"neither UTF-8 nor UTF-16"},
        {"\xFF\xFE<\0a"s, L"half a character"},
        {"<a>\0</a>"s, L"zero character"},
        {"<?xml version='1.0'", L"does not end"},
        {"<?xml version='1.0' encoding='KOI8-R'?><a/>", L"\"koi8-r\""},
    };
    for (const auto& [bytes, reason] : cases) {
        std::wstring text, message;
        EXPECT_FALSE(vorna::DecodeXmlText(bytes, text, message));
        EXPECT_NE(message.npos, message.find(reason)) << bytes;
    }
}

TEST(DocumentText, EncodesHalfASurrogatePairAsTheReplacementCharacter) {
    std::string bytes;
    EXPECT_TRUE(vorna::EncodeUtf8(L"\u20AC\xD83D\xDE00", bytes));
    EXPECT_EQ("\xE2\x82\xAC\xF0\x9F\x98\x80", bytes);
    EXPECT_FALSE(vorna::EncodeUtf8(L"a\xD83D", bytes));
    EXPECT_EQ("a\xEF\xBF\xBD", bytes);
}

} // namespace
