#include "platform/archive/ArchiveHeader.h"

#include "common/com/results.h"
#include "common/com/unique_hash.h"

#include <wincrypt.h>

#include <cstring>
#include <deque>
#include <mutex>
#include <utility>

namespace keldan {

namespace {

constexpr size_t MAGIC_SIZE = 16;
constexpr char MAGIC[MAGIC_SIZE + 1] = "Keldan archive\r\n";
constexpr DWORD VERSION = 1;
constexpr size_t VERSION_OFFSET = MAGIC_SIZE;
constexpr size_t LENGTH_OFFSET = VERSION_OFFSET + sizeof(DWORD);
constexpr size_t PROTECTED_OFFSET = LENGTH_OFFSET + sizeof(DWORD);
using Tag = vorna::sha256_digest;
constexpr size_t TAG_OFFSET = ArchiveHeader::SIZE - sizeof(Tag);
constexpr size_t KEYS_SIZE = 64;

// The file's name in the form in which the protected keys and the tag authenticate it.
std::wstring BoundName(std::wstring_view name) {
    return std::wstring(L"Keldan archive key\n").append(name);
}

HRESULT ComputeTag(const ArchiveHeader::Bytes& bytes, std::wstring_view name, const ArchiveKeys& keys, Tag& tag) {
    const std::wstring bound = BoundName(name);
    const auto header = std::as_bytes(std::span(bytes).first<TAG_OFFSET>());
    return vorna::sha256({header, std::as_bytes(std::span(bound))}, std::as_bytes(std::span(keys.header)), tag);
}

DATA_BLOB Blob(const void* data, size_t size) {
    return {static_cast<DWORD>(size), static_cast<BYTE*>(const_cast<void*>(data))};
}

// Only an error about an argument is damage: the protected keys are the only argument that varies. Callers may give a
// damaged archive up, while other errors (a service that has not started yet, too little memory) pass.
HRESULT UnprotectResult(DWORD error) {
    const bool badArgument = error >= static_cast<DWORD>(NTE_BAD_UID) && error <= static_cast<DWORD>(NTE_BAD_KEY_STATE);
    if (badArgument || error == ERROR_INVALID_DATA || error == ERROR_INVALID_PARAMETER)
        return HRESULT_FROM_WIN32(ERROR_FILE_CORRUPT);
    // About a file of the system, but it would read as if there were no archive.
    if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND)
        return HRESULT_FROM_WIN32(ERROR_DECRYPTION_FAILED);
    return vorna::result_from_win32(error);
}

// Keys of headers that this process has verified, the latest last.
class RememberedKeys {
  public:
    bool Find(std::wstring_view name, const ArchiveHeader::Bytes& bytes, ArchiveKeys& keys) {
        std::lock_guard lock(mutex_);
        for (const Entry& entry : entries_) {
            if (entry.name == name && entry.bytes == bytes) {
                keys = entry.keys;
                return true;
            }
        }
        return false;
    }
    void Add(std::wstring_view name, const ArchiveHeader::Bytes& bytes, const ArchiveKeys& keys) {
        std::lock_guard lock(mutex_);
        if (entries_.size() == MOST)
            entries_.pop_front();
        entries_.push_back({std::wstring(name), bytes, keys});
    }

  private:
    struct Entry {
        std::wstring name;
        ArchiveHeader::Bytes bytes;
        ArchiveKeys keys;
    };
    static constexpr size_t MOST = 64;
    std::mutex mutex_;
    std::deque<Entry> entries_;
};

RememberedKeys& Remembered() {
    static RememberedKeys remembered;
    return remembered;
}

} // namespace

std::wstring ArchiveHeader::NameOf(std::wstring_view path) {
    std::wstring name(path.substr(path.find_last_of(L"\\/") + 1));
    std::wstring folded(name.size(), L'\0');
    int length = LCMapStringEx(LOCALE_NAME_INVARIANT, LCMAP_UPPERCASE, name.data(), static_cast<int>(name.size()),
                               folded.data(), static_cast<int>(folded.size()), nullptr, nullptr, 0);
    return length == static_cast<int>(name.size()) ? folded : name;
}

HRESULT ArchiveHeader::Make(std::wstring_view name, Bytes& bytes, ArchiveKeys& keys) {
    bytes.fill(0);
    for (auto* key : {&keys.pages, &keys.header}) {
        if (BCryptGenRandom(nullptr, key->data(), key->size(), BCRYPT_USE_SYSTEM_PREFERRED_RNG) < 0)
            return E_FAIL;
    }
    std::array<BYTE, KEYS_SIZE> plain;
    std::memcpy(plain.data(), keys.pages.data(), keys.pages.size());
    std::memcpy(plain.data() + keys.pages.size(), keys.header.data(), keys.header.size());
    std::wstring bound = BoundName(name);
    DATA_BLOB in = Blob(plain.data(), plain.size());
    DATA_BLOB entropy = Blob(bound.data(), bound.size() * sizeof(wchar_t));
    DATA_BLOB out{};
    BOOL done = CryptProtectData(&in, L"", &entropy, nullptr, nullptr,
                                 CRYPTPROTECT_LOCAL_MACHINE | CRYPTPROTECT_UI_FORBIDDEN, &out);
    DWORD error = GetLastError();
    SecureZeroMemory(plain.data(), plain.size());
    if (!done)
        return vorna::result_from_win32(error);
    vorna::unique_local_memory owned(out.pbData);
    if (out.cbData > TAG_OFFSET - PROTECTED_OFFSET)
        return E_UNEXPECTED;

    std::memcpy(bytes.data(), MAGIC, MAGIC_SIZE);
    std::memcpy(bytes.data() + VERSION_OFFSET, &VERSION, sizeof VERSION);
    std::memcpy(bytes.data() + LENGTH_OFFSET, &out.cbData, sizeof out.cbData);
    std::memcpy(bytes.data() + PROTECTED_OFFSET, out.pbData, out.cbData);
    Tag tag;
    if (HRESULT result = ComputeTag(bytes, name, keys, tag); FAILED(result))
        return result;
    std::memcpy(bytes.data() + TAG_OFFSET, tag.data(), tag.size());
    Remembered().Add(name, bytes, keys);
    return S_OK;
}

HRESULT ArchiveHeader::Open(std::wstring_view name, const Bytes& bytes, ArchiveKeys& keys) {
    const HRESULT damaged = vorna::result_from_win32(ERROR_FILE_CORRUPT);
    if (Remembered().Find(name, bytes, keys))
        return S_OK;
    DWORD found = 0;
    DWORD length = 0;
    std::memcpy(&found, bytes.data() + VERSION_OFFSET, sizeof found);
    std::memcpy(&length, bytes.data() + LENGTH_OFFSET, sizeof length);
    if (std::memcmp(bytes.data(), MAGIC, MAGIC_SIZE) != 0 || found != VERSION || length == 0 ||
        length > TAG_OFFSET - PROTECTED_OFFSET)
        return damaged;

    std::wstring bound = BoundName(name);
    DATA_BLOB in = Blob(bytes.data() + PROTECTED_OFFSET, length);
    DATA_BLOB entropy = Blob(bound.data(), bound.size() * sizeof(wchar_t));
    DATA_BLOB out{};
    if (!CryptUnprotectData(&in, nullptr, &entropy, nullptr, nullptr, CRYPTPROTECT_UI_FORBIDDEN, &out))
        return UnprotectResult(GetLastError());
    vorna::unique_local_memory owned(out.pbData);
    if (out.cbData != KEYS_SIZE)
        return damaged;
    std::memcpy(keys.pages.data(), out.pbData, keys.pages.size());
    std::memcpy(keys.header.data(), out.pbData + keys.pages.size(), keys.header.size());
    SecureZeroMemory(out.pbData, out.cbData);

    Tag tag;
    if (HRESULT result = ComputeTag(bytes, name, keys, tag); FAILED(result))
        return result;
    if (std::memcmp(tag.data(), bytes.data() + TAG_OFFSET, tag.size()) != 0)
        return damaged;
    Remembered().Add(name, bytes, keys);
    return S_OK;
}

} // namespace keldan
