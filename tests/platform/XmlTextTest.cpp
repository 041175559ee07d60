#include "platform/xml/XmlText.h"

#include <gtest/gtest.h>

namespace {

TEST(XmlText, EscapesMarkupAndDropsWhatXmlForbids) {
    const struct {
        std::wstring_view text;
        const wchar_t* markup;
    } cases[] = {
        {L"a.exe", L"a.exe"},
        {L"<&>\"'", L"&lt;&amp;&gt;&quot;'"},
        {std::wstring_view(L"a\x1\0\x1F\xFFFE\xFFFF"
                           L"b",
                           7),
         L"ab"},
        {L"\t\r\n", L"&#9;&#13;&#10;"},
        {L"\xD83D\xDE00 \u00e9", L"\xD83D\xDE00 \u00e9"},
        {L"\xD83D!\xDE00", L"!"},
        {L"end\xD83D", L"end"},
    };
    for (const auto& c : cases) {
        std::wstring markup;
        keldan::AppendEscaped(markup, c.text);
        EXPECT_EQ(c.markup, markup);
    }
}

} // namespace
