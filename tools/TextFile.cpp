#include "tools/TextFile.h"

#include "common/com/results.h"
#include "common/com/unique_any.h"
#include "tools/Failure.h"

#include <algorithm>
#include <cwctype>

namespace vornactl {

namespace {

constexpr DWORD BLOCK = 1024 * 1024;
constexpr std::wstring_view BLANKS = L" \t\r\n";

std::wstring FromUtf16(std::string_view bytes, bool bigEndian, const std::wstring& path) {
    if (bytes.size() % 2 != 0)
        throw Failure(HRESULT_FROM_WIN32(ERROR_NO_UNICODE_TRANSLATION), L"reading " + path,
                      L"The file is UTF-16 with half a character at its end.");
    std::wstring text(bytes.size() / 2, L'\0');
    for (size_t i = 0; i < text.size(); ++i) {
        const unsigned first = static_cast<unsigned char>(bytes[2 * i]);
        const unsigned second = static_cast<unsigned char>(bytes[2 * i + 1]);
        text[i] = static_cast<wchar_t>(bigEndian ? first << 8 | second : second << 8 | first);
    }
    return text;
}

std::wstring FromUtf8(std::string_view bytes, const std::wstring& path) {
    if (bytes.empty())
        return {};
    const int size = static_cast<int>(bytes.size());
    const int length = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, bytes.data(), size, nullptr, 0);
    if (length == 0)
        throw Failure(HRESULT_FROM_WIN32(ERROR_NO_UNICODE_TRANSLATION), L"reading " + path,
                      L"The file is neither UTF-8 nor UTF-16 text.");
    std::wstring text(static_cast<size_t>(length), L'\0');
    MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, bytes.data(), size, text.data(), length);
    return text;
}

// The encoding that an XML declaration names, in small letters; empty where it names none.
std::wstring DeclaredEncoding(std::wstring_view declaration) {
    size_t at = declaration.find(L"encoding");
    if (at == declaration.npos)
        return {};
    at = declaration.find_first_of(L"\"'", at);
    if (at == declaration.npos)
        return {};
    const size_t end = declaration.find(declaration[at], at + 1);
    if (end == declaration.npos)
        return {};
    std::wstring name(declaration.substr(at + 1, end - at - 1));
    std::transform(name.begin(), name.end(), name.begin(), [](wchar_t letter) { return std::towlower(letter); });
    return name;
}

void DropDeclaration(std::wstring& text, const std::wstring& path) {
    if (!text.starts_with(L"<?xml") || text.size() < 6 || BLANKS.find(text[5]) == BLANKS.npos)
        return;
    const size_t end = text.find(L"?>");
    if (end == text.npos)
        return;
    const std::wstring encoding = DeclaredEncoding(std::wstring_view(text).substr(0, end));
    if (!encoding.empty() && encoding != L"us-ascii" && encoding != L"utf-8" && !encoding.starts_with(L"utf-16"))
        throw Failure(HRESULT_FROM_WIN32(ERROR_NO_UNICODE_TRANSLATION), L"reading " + path,
                      L"The document declares the encoding \"" + encoding + L"\".");
    text.erase(0, end + 2);
}

std::string ReadBytes(const std::wstring& path) {
    vorna::unique_file file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                        OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) {
        const HRESULT result = vorna::result_from_last_error();
        const DWORD attributes = GetFileAttributesW(path.c_str());
        if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY))
            throw Failure(HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), L"reading " + path, L"This is a folder, no file.");
        throw Failure(result, L"reading " + path);
    }
    std::string bytes;
    for (DWORD read = 1; read != 0;) {
        const size_t before = bytes.size();
        bytes.resize(before + BLOCK);
        if (!ReadFile(file.get(), bytes.data() + before, BLOCK, &read, nullptr))
            throw Failure(vorna::result_from_last_error(), L"reading " + path);
        bytes.resize(before + read);
    }
    return bytes;
}

} // namespace

std::wstring DecodeDocument(std::string_view bytes, const std::wstring& path) {
    std::wstring text;
    if (bytes.starts_with("\xEF\xBB\xBF"))
        text = FromUtf8(bytes.substr(3), path);
    else if (bytes.starts_with("\xFF\xFE"))
        text = FromUtf16(bytes.substr(2), false, path);
    else if (bytes.starts_with("\xFE\xFF"))
        text = FromUtf16(bytes.substr(2), true, path);
    // Without a mark the zero in the first character tells: every document begins with a character below U+0080.
    else if (bytes.size() >= 2 && bytes[0] != '\0' && bytes[1] == '\0')
        text = FromUtf16(bytes, false, path);
    else if (bytes.size() >= 2 && bytes[0] == '\0' && bytes[1] != '\0')
        text = FromUtf16(bytes, true, path);
    else
        text = FromUtf8(bytes, path);
    DropDeclaration(text, path);
    if (text.find_first_not_of(BLANKS) == text.npos)
        throw Failure(HRESULT_FROM_WIN32(ERROR_INVALID_DATA), L"reading " + path, L"The file is empty.");
    return text;
}

std::wstring ReadDocument(const std::wstring& path) {
    return DecodeDocument(ReadBytes(path), path);
}

void WriteDocument(const std::wstring& path, std::wstring_view text) {
    vorna::unique_file file(
        CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file)
        throw Failure(vorna::result_from_last_error(), L"writing " + path);
    const std::string bytes = EncodeUtf8(text);
    DWORD written = 0;
    if (!WriteFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) ||
        written != bytes.size())
        throw Failure(vorna::result_from_last_error(), L"writing " + path);
}

std::string EncodeUtf8(std::wstring_view text) {
    if (text.empty())
        return {};
    const int size = static_cast<int>(text.size());
    const int length = WideCharToMultiByte(CP_UTF8, 0, text.data(), size, nullptr, 0, nullptr, nullptr);
    std::string bytes(static_cast<size_t>(length), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), size, bytes.data(), length, nullptr, nullptr);
    return bytes;
}

} // namespace vornactl
