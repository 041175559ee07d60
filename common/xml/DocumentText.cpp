#include "common/xml/DocumentText.h"

#include <windows.h>

#include <algorithm>

namespace vorna {

namespace {

std::wstring FromUtf16(std::string_view bytes, bool bigEndian) {
    std::wstring text(bytes.size() / 2, L'\0');
    for (size_t i = 0; i < text.size(); ++i) {
        const auto first = static_cast<unsigned char>(bytes[2 * i]);
        const auto second = static_cast<unsigned char>(bytes[2 * i + 1]);
        text[i] = static_cast<wchar_t>(bigEndian ? first << 8 | second : second << 8 | first);
    }
    return text;
}

bool FromUtf8(std::string_view bytes, std::wstring& text) {
    if (bytes.empty())
        return true;
    const int size = static_cast<int>(bytes.size());
    const int length = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, bytes.data(), size, nullptr, 0);
    if (length <= 0)
        return false;
    text.resize(static_cast<size_t>(length));
    return MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, bytes.data(), size, text.data(), length) == length;
}

bool IsBlank(wchar_t c) {
    return c == L' ' || c == L'\t' || c == L'\r' || c == L'\n';
}

// The value of the declaration's encoding in lower case; empty where it names none.
std::wstring DeclaredEncoding(std::wstring_view declaration) {
    size_t at = declaration.find(L"encoding");
    if (at == std::wstring_view::npos)
        return {};
    at = declaration.find_first_of(L"'\"", at);
    if (at == std::wstring_view::npos)
        return {};
    const size_t end = declaration.find(declaration[at], at + 1);
    if (end == std::wstring_view::npos)
        return {};
    std::wstring name(declaration.substr(at + 1, end - at - 1));
    std::transform(name.begin(), name.end(), name.begin(),
                   [](wchar_t c) { return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c + 32) : c; });
    return name;
}

} // namespace

bool DecodeXmlText(std::string_view bytes, std::wstring& text, std::wstring& message) {
    using namespace std::string_view_literals;
    text.clear();
    const bool little = bytes.starts_with("\xFF\xFE"sv);
    const bool big = bytes.starts_with("\xFE\xFF"sv);
    const bool wide = little || big || bytes.starts_with("<\0"sv) || bytes.starts_with("\0<"sv);
    if (wide) {
        if (bytes.size() % 2 != 0) {
            message = L"half a character at the end of the UTF-16 text";
            return false;
        }
        text = FromUtf16(bytes.substr(little || big ? 2 : 0), big || bytes[0] == '\0');
    } else {
        if (bytes.starts_with("\xEF\xBB\xBF"sv))
            bytes.remove_prefix(3);
        if (!FromUtf8(bytes, text)) {
            message = L"the text is not UTF-8";
            return false;
        }
    }
    if (text.find(L'\0') != std::wstring::npos) {
        message = L"the text holds a zero character";
        return false;
    }
    if (!text.starts_with(L"<?xml") || text.size() < 6 || !IsBlank(text[5]))
        return true;
    const size_t end = text.find(L"?>");
    if (end == std::wstring::npos) {
        message = L"the XML declaration does not end";
        return false;
    }
    // The text is decoded: an encoding that it still named could only mislead the parser.
    const std::wstring encoding = DeclaredEncoding(std::wstring_view(text).substr(0, end));
    if (!encoding.empty() && encoding != L"us-ascii" && !encoding.starts_with(L"utf-8") &&
        !encoding.starts_with(L"utf-16")) {
        message = L"the encoding \"" + encoding + L"\" is neither UTF-8 nor UTF-16";
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
    const int size =
        WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, text.data(), length, nullptr, 0, nullptr, nullptr);
    if (size <= 0)
        return false;
    bytes.resize(static_cast<size_t>(size));
    return WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, text.data(), length, bytes.data(), size, nullptr,
                               nullptr) == size;
}

} // namespace vorna
