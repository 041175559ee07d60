#include "tools/TextFile.h"

#include "common/com/files.h"
#include "common/xml/DocumentText.h"
#include "common/xml/XmlCharacters.h"
#include "tools/Failure.h"

#include <filesystem>

namespace vornactl {

namespace {

// Far above what the component and the platform accept, and still little for a 32-bit process.
constexpr std::uint64_t MAX_BYTES = 256ull * 1024 * 1024;

std::string ReadBytes(const std::wstring& path, const std::wstring& action) {
    const vorna::unique_file file = vorna::open_for_reading(path);
    if (!file) {
        const HRESULT result = vorna::result_from_last_error();
        std::error_code ignored;
        if (std::filesystem::is_directory(path, ignored))
            throw Failure(HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND), action, L"This is a folder, not a file.");
        throw Failure(result, action);
    }
    std::string bytes;
    if (const HRESULT result = vorna::read_file(file.get(), MAX_BYTES, bytes); FAILED(result))
        throw Failure(result, action);
    return bytes;
}

} // namespace

std::wstring ReadDocument(const std::wstring& path) {
    const std::wstring action = L"reading " + path;
    std::wstring text;
    std::wstring reason;
    if (!vorna::DecodeXmlText(ReadBytes(path, action), text, reason))
        throw Failure(HRESULT_FROM_WIN32(ERROR_NO_UNICODE_TRANSLATION), action,
                      L"The file cannot be decoded: " + reason + L".");
    if (vorna::Trimmed(text).empty())
        throw Failure(HRESULT_FROM_WIN32(ERROR_INVALID_DATA), action, L"The file is empty.");
    return text;
}

void WriteDocument(const std::wstring& path, std::wstring_view text) {
    std::string bytes;
    (void)vorna::EncodeUtf8(text, bytes);
    const vorna::unique_file file(
        CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD written = 0;
    if (!file || !WriteFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) ||
        written != bytes.size())
        throw Failure(vorna::result_from_last_error(), L"writing " + path);
}

} // namespace vornactl
