#include "common/xml/XmlEscape.h"

#include <gtest/gtest.h>

namespace {

using vorna::XmlContext;

TEST(XmlEscape, EscapesWhatAParserWouldReadDifferently) {
    const struct {
        const wchar_t* text;
        const wchar_t* content;
        const wchar_t* attribute;
    } cases[] = {
        {L"a.exe \xD83D\xDE00 \u00e9", L"a.exe \xD83D\xDE00 \u00e9", L"a.exe \xD83D\xDE00 \u00e9"},
        {L"<&>\"'", L"&lt;&amp;&gt;\"'", L"&lt;&amp;&gt;&quot;'"},
        {L"\t\r\n", L"\t&#13;\n", L"&#9;&#13;&#10;"},
        {L"\x1", L"\x1", L"\x1"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.content, vorna::EscapeXml(c.text));
        EXPECT_EQ(c.attribute, vorna::EscapeXml(c.text, XmlContext::Attribute));
    }
}

TEST(XmlEscape, DropsWhatNoDocumentCanHold) {
    using namespace std::string_view_literals;
    const std::pair<std::wstring_view, const wchar_t*> cases[] = {
        {L"a\x1\0\x1F\xFFFE\xFFFF"
         L"b"sv,
         L"ab"},
        {L"\t\r\n\xD83D\xDE00", L"\t\r\n\xD83D\xDE00"},
        {L"\xD83D!\xDE00", L"!"},
        {L"end\xD83D", L"end"},
    };
    for (const auto& [text, kept] : cases)
        EXPECT_EQ(kept, vorna::DropForbidden(text));
}

} // namespace
