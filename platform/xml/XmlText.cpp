#include "platform/xml/XmlText.h"

namespace keldan {

void AppendEscaped(std::wstring& markup, std::wstring_view text) {
    for (size_t i = 0; i < text.size(); ++i) {
        const wchar_t c = text[i];
        switch (c) {
        case L'&':
            markup += L"&amp;";
            break;
        case L'<':
            markup += L"&lt;";
            break;
        case L'>':
            markup += L"&gt;";
            break;
        case L'"':
            markup += L"&quot;";
            break;
        // As references, or a parser would read the three as blanks or line feeds.
        case L'\t':
            markup += L"&#9;";
            break;
        case L'\n':
            markup += L"&#10;";
            break;
        case L'\r':
            markup += L"&#13;";
            break;
        default:
            if (c >= 0xD800 && c <= 0xDBFF) {
                if (i + 1 < text.size() && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF)
                    markup.append(text.substr(i++, 2));
            } else if (c >= 0x20 && (c < 0xDC00 || c > 0xDFFF) && c < 0xFFFE) {
                markup += c;
            }
        }
    }
}

} // namespace keldan
