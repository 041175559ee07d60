#include "common/services/Directories.h"

#include "common/com/scope_exit.h"
#include "common/com/unique_any.h"
#include "common/log/Logging.h"
#include "common/services/platformservices.h"

#include <windows.h>

#include <aclapi.h>
#include <io.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <vector>

namespace VORNAUTILITY {

namespace {

constexpr size_t MAX_PATH_BYTES = 512;
constexpr std::wstring_view LONG_PATH = L"\\\\?\\";

// The text of a narrow path; false for null, a path that is too long and bytes that are no characters.
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
    // The long form is the one that is used anyway.
    if (text.starts_with(LONG_PATH))
        text.erase(0, LONG_PATH.size());
    return true;
}

bool IsDrive(std::wstring_view piece) {
    return piece.size() == 2 && piece[1] == L':' && ((piece[0] | 0x20) >= L'a' && (piece[0] | 0x20) <= L'z');
}

bool IsFileName(std::wstring_view piece) {
    if (piece.front() == L'.' || piece.back() == L'.')
        return false;
    // The long-path form keeps a blank at the end that every other form drops: two names for one directory.
    if (piece.back() == L' ')
        return false;
    for (wchar_t c : piece)
        if (c < 0x20 || c == 0x7F || std::wcschr(L",/:*?\"<>|", c))
            return false;
    return true;
}

// A security descriptor that gives everyone the access that the mask names.
class EveryoneDescriptor {
  public:
    explicit EveryoneDescriptor(DWORD accessMask) : library_(LoadLibraryW(L"advapi32.dll")) {
        const auto initialize = Function<decltype(&::InitializeSecurityDescriptor)>("InitializeSecurityDescriptor");
        const auto allocateSid = Function<decltype(&::AllocateAndInitializeSid)>("AllocateAndInitializeSid");
        const auto setEntries = Function<decltype(&::SetEntriesInAclW)>("SetEntriesInAclW");
        const auto setDacl = Function<decltype(&::SetSecurityDescriptorDacl)>("SetSecurityDescriptorDacl");
        freeSid_ = Function<decltype(&::FreeSid)>("FreeSid");
        if (!initialize || !allocateSid || !setEntries || !setDacl || !freeSid_)
            return;

        SID_IDENTIFIER_AUTHORITY world = {{0, 0, 0, 0, 0, 1}};
        if (!initialize(&descriptor_, SECURITY_DESCRIPTOR_REVISION) ||
            !allocateSid(&world, 1, 0, 0, 0, 0, 0, 0, 0, 0, &sid_))
            return;

        EXPLICIT_ACCESSW everyone{};
        everyone.grfAccessPermissions = accessMask;
        everyone.grfAccessMode = SET_ACCESS;
        everyone.grfInheritance = SUB_CONTAINERS_AND_OBJECTS_INHERIT;
        everyone.Trustee.TrusteeForm = TRUSTEE_IS_SID;
        everyone.Trustee.TrusteeType = TRUSTEE_IS_WELL_KNOWN_GROUP;
        everyone.Trustee.ptstrName = static_cast<LPWSTR>(sid_);
        PACL list = nullptr;
        if (setEntries(1, &everyone, nullptr, &list) != ERROR_SUCCESS)
            return;
        list_.reset(list);
        valid_ = setDacl(&descriptor_, TRUE, list, FALSE);
    }
    ~EveryoneDescriptor() {
        if (sid_)
            freeSid_(sid_);
    }
    EveryoneDescriptor(const EveryoneDescriptor&) = delete;
    EveryoneDescriptor& operator=(const EveryoneDescriptor&) = delete;

    // Null where it could not be built. Lives as long as the object.
    SECURITY_DESCRIPTOR* get() { return valid_ ? &descriptor_ : nullptr; }

  private:
    template <typename Pointer>
    Pointer Function(const char* name) const {
        return library_ ? reinterpret_cast<Pointer>(reinterpret_cast<void*>(GetProcAddress(library_.get(), name)))
                        : nullptr;
    }

    vorna::unique_library library_;
    decltype(&::FreeSid) freeSid_ = nullptr;
    SECURITY_DESCRIPTOR descriptor_{};
    PSID sid_ = nullptr;
    vorna::unique_local_memory list_;
    bool valid_ = false;
};

bool CreateOne(const std::wstring& path) {
    EveryoneDescriptor everyone(GENERIC_ALL);
    if (!everyone.get()) {
        VORNA_LOG(vorna::LOG_TRACE, "VORNAUTILITY::SCCreateDirectory no security descriptor for %S", path.c_str());
        return false;
    }
    SECURITY_ATTRIBUTES attributes{sizeof attributes, everyone.get(), FALSE};
    const std::wstring longPath = std::wstring(LONG_PATH) + path;
    if (CreateDirectoryW(longPath.c_str(), &attributes))
        return true;
    const DWORD error = GetLastError();
    // A drive's root is not reported as existing but as denied, so ask.
    const DWORD found = GetFileAttributesW(longPath.c_str());
    if (found != INVALID_FILE_ATTRIBUTES && (found & FILE_ATTRIBUTE_DIRECTORY))
        return true;
    VORNA_LOG(vorna::LOG_TRACE, "VORNAUTILITY::SCCreateDirectory cannot create %S, error %lu", path.c_str(), error);
    return false;
}

bool IsDotsName(std::wstring_view name) {
    return name == L"." || name == L"..";
}

// A directory below a drive's root, named without detours: the long form does not resolve "..".
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

// Removes the link, never what it leads to. RemoveDirectoryW follows the link on some systems, so the link is opened
// and asked what it is; where it cannot be opened itself, it stays and this fails.
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

// path is in the long form, without a backslash at its end: a tree as deep as CreateDirectories makes it can be
// removed.
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

// The file of the in-process server that is registered for a ProgID; empty where there is none.
std::wstring ServerFile(const wchar_t* progId) {
    CLSID classId{};
    if (FAILED(CLSIDFromProgID(progId, &classId)))
        return {};
    wchar_t guid[40];
    if (StringFromGUID2(classId, guid, static_cast<int>(std::size(guid))) == 0)
        return {};
    const std::wstring key = std::wstring(L"CLSID\\") + guid + L"\\InprocServer32";
    DWORD bytes = 0;
    LSTATUS status = ERROR_MORE_DATA;
    std::vector<wchar_t> value(MAX_PATH);
    // The value may grow between two calls.
    while (status == ERROR_MORE_DATA) {
        bytes = static_cast<DWORD>(value.size()) * sizeof(wchar_t);
        status = RegGetValueW(HKEY_CLASSES_ROOT, key.c_str(), nullptr, RRF_RT_REG_SZ, nullptr, value.data(), &bytes);
        if (status == ERROR_MORE_DATA)
            value.resize(value.size() * 2);
    }
    return status == ERROR_SUCCESS ? std::wstring(value.data()) : std::wstring();
}

} // namespace

int CreateDirectories(const char* path) {
    VORNA_SCOPE_TRACE("VORNAUTILITY::CreateDirectories");
    try {
        std::wstring text;
        // Two backslashes that are not the long form's name a machine on the network.
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
            // The long form knows full paths only, so the first piece is a drive; no other one is.
            if (prefix.empty() ? !IsDrive(piece) : !IsFileName(piece)) {
                VORNA_LOG(vorna::LOG_TRACE, "VORNAUTILITY::CreateDirectories piece not accepted in %S", text.c_str());
                return 0;
            }
            prefix.append(piece).append(L"\\");
            if (!CreateOne(prefix))
                return 0;
        }
        return prefix.empty() ? 0 : 1;
    } catch (...) {
        VORNA_LOG(vorna::LOG_ERROR, "Unknown Exception Occured");
        return 0;
    }
}

bool SCCreateDirectory(const char* path) {
    VORNA_SCOPE_TRACE("VORNAUTILITY::SCCreateDirectory");
    try {
        std::wstring text;
        return ReadPath(path, text) && CreateOne(text);
    } catch (...) {
        VORNA_LOG(vorna::LOG_ERROR, "Unknown Exception Occured");
        return false;
    }
}

bool DeleteDirectory(const char* path, bool recurse) {
    VORNA_SCOPE_TRACE("VORNAUTILITY::DeleteDirectory");
    try {
        std::wstring text;
        if (!ReadPath(path, text))
            return false;
        while (!text.empty() && text.back() == L'\\')
            text.pop_back();
        if (!IsPlainPath(text))
            return false;
        text.insert(0, LONG_PATH);
        const DWORD attributes = GetFileAttributesW(text.c_str());
        if (attributes == INVALID_FILE_ATTRIBUTES)
            return false;
        const bool deleted = (attributes & FILE_ATTRIBUTE_REPARSE_POINT) ? RemoveLink(text) : DeleteTree(text, recurse);
        if (!deleted)
            VORNA_LOG(vorna::LOG_TRACE, "VORNAUTILITY::DeleteDirectory cannot delete %S, error %lu", text.c_str(),
                      GetLastError());
        return deleted;
    } catch (...) {
        VORNA_LOG(vorna::LOG_ERROR, "Unknown Exception Occured");
        return false;
    }
}

bool IsDots(const char* name) {
    VORNA_SCOPE_TRACE("VORNAUTILITY::IsDots");
    return name && (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0);
}

std::wstring GetComponentDirectory() {
    VORNA_SCOPE_TRACE("VORNAUTILITY::GetComponentDirectory");
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
