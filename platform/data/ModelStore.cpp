#include "platform/data/ModelStore.h"

#include "common/com/files.h"
#include "common/com/results.h"
#include "common/com/scope_exit.h"
#include "common/xml/DocumentText.h"

#include <atomic>

namespace keldan {

namespace {

constexpr size_t MAX_FILE_NAME = 255;
// Write appends at most this many characters to the names of unfinished files.
constexpr size_t ROOM_FOR_SUFFIX = 24;

bool AppendEncoded(std::wstring_view text, std::wstring& name) {
    std::string bytes;
    if (!vorna::EncodeUtf8(text, bytes))
        return false;
    for (unsigned char c : bytes) {
        // Capital letters are encoded too: the file system may ignore case.
        if ((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_') {
            name += static_cast<wchar_t>(c);
        } else {
            name += L'%';
            name += L"0123456789ABCDEF"[c >> 4];
            name += L"0123456789ABCDEF"[c & 15];
        }
    }
    return true;
}

// Waits for a writer that has the file open for a moment.
vorna::unique_file OpenForReading(const std::wstring& path) {
    constexpr int ATTEMPTS = 10;
    for (int attempt = 1;; ++attempt) {
        vorna::unique_file file = vorna::open_for_reading(path);
        const DWORD error = GetLastError();
        if (file || attempt == ATTEMPTS || (error != ERROR_SHARING_VIOLATION && error != ERROR_ACCESS_DENIED))
            return file;
        Sleep(20);
    }
}

// A file cannot be replaced while a reader has it open for a moment.
bool Replace(const std::wstring& from, const std::wstring& to) {
    constexpr ULONGLONG PATIENCE = 3000;
    const ULONGLONG start = GetTickCount64();
    for (;;) {
        if (MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
            return true;
        const DWORD error = GetLastError();
        if ((error != ERROR_ACCESS_DENIED && error != ERROR_SHARING_VIOLATION) || GetTickCount64() - start > PATIENCE)
            return false;
        Sleep(1);
    }
}

bool WriteAll(HANDLE file, std::string_view bytes) {
    DWORD count = 0;
    return WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &count, nullptr) && count == bytes.size() &&
           FlushFileBuffers(file);
}

} // namespace

std::wstring ModelStore::FileName(const ServiceIdentity& service) {
    std::wstring name;
    // "+" is never part of an encoded text, so it separates the three unambiguously.
    if (!AppendEncoded(service.serviceId, name) || !AppendEncoded(service.serviceUri, name += L'+') ||
        !AppendEncoded(service.portId, name += L'+'))
        return {};
    name += L".xml";
    return name.size() + ROOM_FOR_SUFFIX <= MAX_FILE_NAME ? name : std::wstring();
}

std::wstring ModelStore::PathOf(const ServiceIdentity& service) const {
    const std::wstring name = FileName(service);
    return name.empty() ? name : folder_ + L"\\" + name;
}

HRESULT ModelStore::Read(const ServiceIdentity& service, std::wstring& document, std::wstring& message) const {
    document.clear();
    const std::wstring path = PathOf(service);
    if (path.empty()) {
        message = L"The service has no data model: its identity is too long for a file name or no text.";
        return HRESULT_FROM_WIN32(ERROR_NOT_FOUND);
    }
    const vorna::unique_file file = OpenForReading(path);
    if (!file) {
        const DWORD error = GetLastError();
        if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) {
            message = L"The service has no data model: there is no file \"" + path + L"\".";
            return HRESULT_FROM_WIN32(ERROR_NOT_FOUND);
        }
        message = L"The data model \"" + path + L"\" cannot be opened, error " + std::to_wstring(error) + L".";
        return vorna::result_from_win32(error);
    }
    std::string bytes;
    if (const HRESULT result = vorna::read_file(file.get(), MAX_BYTES, bytes); FAILED(result)) {
        message =
            L"The data model \"" + path + L"\" cannot be read, error " + std::to_wstring(HRESULT_CODE(result)) + L".";
        return result;
    }
    std::wstring reason;
    if (!vorna::DecodeXmlText(bytes, document, reason)) {
        document.clear();
        message = L"The data model \"" + path + L"\" is not well-formed: " + reason + L".";
        return vorna::RESULT_XML_MALFORMED;
    }
    return S_OK;
}

HRESULT ModelStore::Write(const ServiceIdentity& service, std::wstring_view document, std::wstring& message) const {
    static std::atomic<unsigned> written{0};
    const std::wstring path = PathOf(service);
    std::string bytes;
    if (path.empty()) {
        message = L"The service can have no data model: its identity is too long for a file name or no text.";
        return E_INVALIDARG;
    }
    if (!vorna::EncodeUtf8(document, bytes) || bytes.size() > MAX_BYTES) {
        message = L"The data model for \"" + path + L"\" is no text or larger than the platform reads.";
        return E_INVALIDARG;
    }
    const auto fail = [&](DWORD error) {
        message = L"The data model \"" + path + L"\" cannot be written, error " + std::to_wstring(error) + L".";
        return vorna::result_from_win32(error);
    };
    if (const HRESULT result = CreateFolder(folder_); FAILED(result)) {
        message = L"The folder \"" + folder_ + L"\" cannot be created.";
        return result;
    }
    const std::wstring unfinished =
        path + L"." + std::to_wstring(GetCurrentProcessId()) + L"." + std::to_wstring(++written);
    vorna::unique_file file(
        CreateFileW(unfinished.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file)
        return fail(GetLastError());
    vorna::scope_exit removeUnfinished([&] { DeleteFileW(unfinished.c_str()); });
    if (!WriteAll(file.get(), bytes)) {
        const DWORD error = GetLastError();
        file.reset();
        return fail(error);
    }
    file.reset();
    if (!Replace(unfinished, path))
        return fail(GetLastError());
    removeUnfinished.release();
    return S_OK;
}

HRESULT ModelStore::Remove(const ServiceIdentity& service) const {
    const std::wstring path = PathOf(service);
    if (path.empty())
        return HRESULT_FROM_WIN32(ERROR_NOT_FOUND);
    if (DeleteFileW(path.c_str()))
        return S_OK;
    const DWORD error = GetLastError();
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND ? HRESULT_FROM_WIN32(ERROR_NOT_FOUND)
                                                                          : vorna::result_from_win32(error);
}

} // namespace keldan
