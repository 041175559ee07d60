#include "common/services/Directories.h"

#include "common/com/everyone_descriptor.h"
#include "common/com/paths.h"
#include "common/com/registry.h"
#include "common/com/text_forms.h"
#include "common/com/unique_any.h"
#include "common/log/CatchAll.h"
#include "common/services/platformservices.h"

#include <windows.h>

#include <io.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>

namespace VORNAUTILITY {

namespace {

constexpr size_t MAX_PATH_BYTES = 512;

// Converts a narrow path and removes the long-path prefix. False if it is null, empty, too long or has invalid bytes.
bool ReadPath(const char* path, std::wstring& text) {
    text.clear();
    if (!path)
        return false;
    const size_t length = strnlen(path, MAX_PATH_BYTES + 1);
    if (length == 0 || length > MAX_PATH_BYTES)
        return false;
    wchar_t wide[MAX_PATH_BYTES];
    const int count = MultiByteToWideChar(CP_ACP, MB_ERR_INVALID_CHARS, path, static_cast<int>(length), wide,
                                          static_cast<int>(MAX_PATH_BYTES));
    if (count <= 0)
        return false;
    text.assign(wide, static_cast<size_t>(count));
    // The prefix is added again where the path is used.
    if (text.starts_with(vorna::LONG_PATH))
        text.erase(0, vorna::LONG_PATH.size());
    return true;
}

bool IsDrive(std::wstring_view piece) {
    return piece.size() == 2 && piece[1] == L':' && ((piece[0] | 0x20) >= L'a' && (piece[0] | 0x20) <= L'z');
}

bool IsFileName(std::wstring_view piece) {
    if (piece.front() == L'.' || piece.back() == L'.')
        return false;
    // Long paths keep a trailing blank and all other paths drop it, so the same name would mean two directories.
    if (piece.back() == L' ')
        return false;
    for (wchar_t c : piece)
        if (c < 0x20 || c == 0x7F || std::wcschr(L",/:*?\"<>|", c))
            return false;
    return true;
}

bool CreateOne(const std::wstring& path) {
    vorna::everyone_descriptor everyone(GENERIC_ALL);
    if (!everyone.complete()) {
        VORNA_LOG(vorna::LOG_TRACE, "VORNAUTILITY::SCCreateDirectory no security descriptor for %S", path.c_str());
        return false;
    }
    SECURITY_ATTRIBUTES attributes{sizeof attributes, everyone.get(), FALSE};
    const std::wstring longPath = std::wstring(vorna::LONG_PATH) + path;
    if (CreateDirectoryW(longPath.c_str(), &attributes))
        return true;
    const DWORD error = GetLastError();
    // For the root of a drive the error is "access denied", not "already exists", so check whether it exists.
    const DWORD found = GetFileAttributesW(longPath.c_str());
    if (found != INVALID_FILE_ATTRIBUTES && (found & FILE_ATTRIBUTE_DIRECTORY))
        return true;
    VORNA_LOG(vorna::LOG_TRACE, "VORNAUTILITY::SCCreateDirectory cannot create %S, error %lu", path.c_str(), error);
    return false;
}

bool IsDotsName(std::wstring_view name) {
    return name == L"." || name == L"..";
}

// True for a directory below the root of a drive, without "." and ".." in its path: long paths do not resolve them.
bool IsPlainPath(std::wstring_view path) {
    if (path.size() <= 3 || !IsDrive(path.substr(0, 2)) || path[2] != L'\\')
        return false;
    for (size_t at = 3; at < path.size();) {
        const size_t end = std::min(path.find(L'\\', at), path.size());
        if (end == at || IsDotsName(path.substr(at, end - at)))
            return false;
        at = end + 1;
    }
    return true;
}

void MakeWritable(const std::wstring& path, DWORD attributes) {
    if (attributes & FILE_ATTRIBUTE_READONLY)
        _wchmod(path.c_str(), _S_IREAD | _S_IWRITE);
}

// Removes the link, never its target. RemoveDirectoryW follows links on some systems, so the link itself is opened and
// checked. Fails without removing anything if the system opens the target instead.
bool RemoveLink(const std::wstring& path) {
    const vorna::unique_file link(
        CreateFileW(path.c_str(), DELETE | FILE_READ_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                    nullptr, OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS, nullptr));
    BY_HANDLE_FILE_INFORMATION opened{};
    if (!link || !GetFileInformationByHandle(link.get(), &opened))
        return false;
    if (!(opened.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT)) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return false;
    }
    FILE_DISPOSITION_INFO remove{TRUE};
    return SetFileInformationByHandle(link.get(), FileDispositionInfo, &remove, sizeof remove);
}

// path: in the long form, because trees can be deeper than MAX_PATH, and without a trailing backslash.
bool DeleteTree(const std::wstring& path, bool recurse) {
    WIN32_FIND_DATAW entry{};
    vorna::unique_find search(FindFirstFileW((path + L"\\*").c_str(), &entry));
    if (!search)
        return false;
    do {
        if (IsDotsName(entry.cFileName))
            continue;
        const std::wstring name = path + L"\\" + entry.cFileName;
        if (entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) {
            if (!RemoveLink(name))
                return false;
        } else if (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
            if (!recurse || !DeleteTree(name, recurse))
                return false;
        } else {
            MakeWritable(name, entry.dwFileAttributes);
            if (!DeleteFileW(name.c_str()))
                return false;
        }
    } while (FindNextFileW(search.get(), &entry));
    if (GetLastError() != ERROR_NO_MORE_FILES)
        return false;
    search.reset();
    MakeWritable(path, GetFileAttributesW(path.c_str()));
    return RemoveDirectoryW(path.c_str());
}

// The file of the in-process server that is registered for a ProgID; empty if there is none.
std::wstring ServerFile(const wchar_t* progId) {
    CLSID classId{};
    if (FAILED(CLSIDFromProgID(progId, &classId)))
        return {};
    const std::wstring key = L"CLSID\\" + vorna::guid_text(classId) + L"\\InprocServer32";
    return vorna::registry_text(HKEY_CLASSES_ROOT, key, nullptr).value_or(L"");
}

} // namespace

int CreateDirectories(const char* path) {
    return vorna::CatchAll("VORNAUTILITY::CreateDirectories", 0, [&]() -> int {
        std::wstring text;
        // ReadPath has removed the long-path prefix, so two backslashes mean a network path.
        if (!ReadPath(path, text) || text.starts_with(L"\\\\")) {
            VORNA_LOG(vorna::LOG_TRACE, "VORNAUTILITY::CreateDirectories path not accepted");
            return 0;
        }
        std::wstring prefix;
        for (size_t at = 0; at < text.size();) {
            const size_t end = std::min(text.find(L'\\', at), text.size());
            const std::wstring_view piece = std::wstring_view(text).substr(at, end - at);
            at = end + 1;
            if (piece.empty())
                continue;
            // Long paths must be full paths, so the first piece must be a drive.
            if (prefix.empty() ? !IsDrive(piece) : !IsFileName(piece)) {
                VORNA_LOG(vorna::LOG_TRACE, "VORNAUTILITY::CreateDirectories piece not accepted in %S", text.c_str());
                return 0;
            }
            prefix.append(piece).append(L"\\");
            if (!CreateOne(prefix))
                return 0;
        }
        return prefix.empty() ? 0 : 1;
    });
}

bool SCCreateDirectory(const char* path) {
    return vorna::CatchAll("VORNAUTILITY::SCCreateDirectory", false, [&]() -> bool {
        std::wstring text;
        return ReadPath(path, text) && CreateOne(text);
    });
}

bool DeleteDirectory(const char* path, bool recurse) {
    return vorna::CatchAll("VORNAUTILITY::DeleteDirectory", false, [&]() -> bool {
        std::wstring text;
        if (!ReadPath(path, text))
            return false;
        while (!text.empty() && text.back() == L'\\')
            text.pop_back();
        if (!IsPlainPath(text))
            return false;
        text.insert(0, vorna::LONG_PATH);
        const DWORD attributes = GetFileAttributesW(text.c_str());
        if (attributes == INVALID_FILE_ATTRIBUTES)
            return false;
        const bool deleted = (attributes & FILE_ATTRIBUTE_REPARSE_POINT) ? RemoveLink(text) : DeleteTree(text, recurse);
        if (!deleted)
            VORNA_LOG(vorna::LOG_TRACE, "VORNAUTILITY::DeleteDirectory cannot delete %S, error %lu", text.c_str(),
                      GetLastError());
        return deleted;
    });
}

bool IsDots(const char* name) {
    const vorna::ScopeTrace trace("VORNAUTILITY::IsDots");
    return name && (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0);
}

std::wstring GetComponentDirectory() {
    const vorna::ScopeTrace trace("VORNAUTILITY::GetComponentDirectory");
    std::wstring directory = ServerFile(vorna::PROGID_VORNA);
    if (directory.empty())
        return directory;
    if (const size_t last = directory.rfind(L'\\'); last != std::wstring::npos)
        directory.resize(last + 1);
    else
        directory += L'\\';
    return directory;
}

} // namespace VORNAUTILITY
