#include "common/xml/DocumentText.h"

#include <gtest/gtest.h>

using namespace std::string_literals;

namespace {

TEST(DocumentText, ReadsEveryEncodingWithAndWithoutMark) {
    for (const std::string& bytes : {
             "<a>\xC3\xBC</a>"s,
             "\xEF\xBB\xBF<a>\xC3\xBC</a>"s,
             "<\0a\0>\0\xFC\0<\0/\0a\0>\0"s,
             "\xFF\xFE<\0a\0>\0\xFC\0<\0/\0a\0>\0"s,
             "\0<\0a\0>\0\xFC\0<\0/\0a\0>"s,
             "\xFE\xFF\0<\0a\0>\0\xFC\0<\0/\0a\0>"s,
             "<?xml version='1.0' encoding='UTF-8'?><a>\xC3\xBC</a>"s,
             "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a>\xFC</a>"s,
         }) {
        std::wstring text, message;
        EXPECT_TRUE(vorna::DecodeXmlText(bytes, text, message));
        EXPECT_EQ(L"<a>\u00FC</a>", text);
    }
}

TEST(DocumentText, KeepsInstructionsThatOnlyBeginLikeADeclaration) {
    std::wstring text, message;
    EXPECT_TRUE(vorna::DecodeXmlText("<?xml-stylesheet href='a'?><a/>", text, message));
    EXPECT_EQ(L"<?xml-stylesheet href='a'?><a/>", text);
}

TEST(DocumentText, SaysWhatIsWrongWithOtherBytes) {
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

TEST(DocumentText, EncodesWithReplacementsForHalvesOfPairs) {
    std::string bytes;
    EXPECT_TRUE(vorna::EncodeUtf8(L"\u20AC\xD83D\xDE00", bytes));
    EXPECT_EQ("\xE2\x82\xAC\xF0\x9F\x98\x80", bytes);
    EXPECT_FALSE(vorna::EncodeUtf8(L"a\xD83D", bytes));
    EXPECT_EQ("a\xEF\xBF\xBD", bytes);
}

} // namespace
