#include "common/xml/DocumentText.h"

#include "common/xml/XmlCharacters.h"

#include <windows.h>

#include <algorithm>

namespace vorna {

namespace {

constexpr UINT CODE_PAGE_ISO_8859_1 = 28591;

std::wstring FromUtf16(std::string_view bytes, bool bigEndian) {
    std::wstring text(bytes.size() / 2, L'\0');
    for (size_t i = 0; i < text.size(); ++i) {
        const auto first = static_cast<unsigned char>(bytes[2 * i]);
        const auto second = static_cast<unsigned char>(bytes[2 * i + 1]);
        text[i] = static_cast<wchar_t>(bigEndian ? first << 8 | second : second << 8 | first);
    }
    return text;
}

bool FromCodePage(std::string_view bytes, UINT codePage, std::wstring& text) {
    text.clear();
    if (bytes.empty())
        return true;
    const DWORD flags = codePage == CP_UTF8 ? MB_ERR_INVALID_CHARS : 0;
    const int size = static_cast<int>(bytes.size());
    const int length = MultiByteToWideChar(codePage, flags, bytes.data(), size, nullptr, 0);
    if (length <= 0)
        return false;
    text.resize(static_cast<size_t>(length));
    return MultiByteToWideChar(codePage, flags, bytes.data(), size, text.data(), length) == length;
}

template <typename Character>
bool HasDeclaration(std::basic_string_view<Character> text) {
    constexpr Character BEGINNING[] = {'<', '?', 'x', 'm', 'l'};
    return text.size() > std::size(BEGINNING) && std::equal(std::begin(BEGINNING), std::end(BEGINNING), text.begin()) &&
           IsXmlSpace(static_cast<wchar_t>(text[std::size(BEGINNING)]));
}

// The encoding that the declaration names, in lower case; empty if it names none.
std::wstring DeclaredEncoding(std::wstring_view declaration) {
    size_t at = declaration.find(L"encoding");
    at = at == declaration.npos ? at : declaration.find_first_of(L"'\"", at);
    if (at == declaration.npos)
        return {};
    std::wstring name(declaration.substr(at + 1, declaration.find(declaration[at], at + 1) - at - 1));
    std::transform(name.begin(), name.end(), name.begin(),
                   [](wchar_t c) { return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c + 32) : c; });
    return name;
}

// False if the bytes are UTF-16 and end in the middle of a character.
bool DecodeUtf16(std::string_view bytes, bool& isUtf16, std::wstring& text) {
    const bool marked = bytes.starts_with("\xFF\xFE") || bytes.starts_with("\xFE\xFF");
    // Every document begins with a character below U+0080, so without a byte order mark its zero byte shows the byte
    // order.
    isUtf16 = marked || (bytes.size() >= 2 && (bytes[0] == '\0') != (bytes[1] == '\0'));
    if (!isUtf16)
        return true;
    const bool bigEndian = marked ? bytes[0] == '\xFE' : bytes[0] == '\0';
    text = FromUtf16(bytes.substr(marked ? 2 : 0), bigEndian);
    return bytes.size() % 2 == 0;
}

// UTF-8, or ISO 8859-1 if the declaration says so.
bool DecodeBytes(std::string_view bytes, std::wstring& text) {
    const bool marked = bytes.starts_with("\xEF\xBB\xBF");
    bool latin = false;
    if (!marked && HasDeclaration(bytes)) {
        const std::string_view declaration = bytes.substr(0, bytes.find("?>"));
        latin = DeclaredEncoding(std::wstring(declaration.begin(), declaration.end())) == L"iso-8859-1";
    }
    return FromCodePage(bytes.substr(marked ? 3 : 0), latin ? CODE_PAGE_ISO_8859_1 : CP_UTF8, text);
}

} // namespace

bool DecodeXmlText(std::string_view bytes, std::wstring& text, std::wstring& message) {
    text.clear();
    bool utf16 = false;
    if (!DecodeUtf16(bytes, utf16, text)) {
        message = L"it is UTF-16 with half a character at its end";
        return false;
    }
    if (!utf16 && !DecodeBytes(bytes, text)) {
        message = L"it is neither UTF-8 nor UTF-16 text";
        return false;
    }
    if (text.find(L'\0') != text.npos) {
        message = L"the text holds a zero character";
        return false;
    }
    if (!HasDeclaration(std::wstring_view(text)))
        return true;
    const size_t end = text.find(L"?>");
    if (end == text.npos) {
        message = L"the XML declaration does not end";
        return false;
    }
    const std::wstring encoding = DeclaredEncoding(std::wstring_view(text).substr(0, end));
    const bool known = encoding.empty() || encoding == L"us-ascii" || encoding == L"utf-8" ||
                       encoding.starts_with(L"utf-16") || (encoding == L"iso-8859-1" && !utf16);
    if (!known) {
        message = L"the encoding \"" + encoding + L"\" is not UTF-8, UTF-16 or ISO-8859-1";
        return false;
    }
    text.erase(0, end + 2);
    return true;
}

bool EncodeUtf8(std::wstring_view text, std::string& bytes) {
    bytes.clear();
    if (text.empty())
        return true;
    const int length = static_cast<int>(text.size());
    const auto encode = [&](DWORD flags) {
        const int size = WideCharToMultiByte(CP_UTF8, flags, text.data(), length, nullptr, 0, nullptr, nullptr);
        bytes.resize(static_cast<size_t>(size));
        return size > 0 &&
               WideCharToMultiByte(CP_UTF8, flags, text.data(), length, bytes.data(), size, nullptr, nullptr) == size;
    };
    if (encode(WC_ERR_INVALID_CHARS))
        return true;
    encode(0);
    return false;
}

} // namespace vorna
