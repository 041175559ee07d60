// The first 4096 bytes of an archive: its key, protected by the operating system, and proof that no byte was changed.
#pragma once

#include <windows.h>

#include <array>
#include <string>
#include <string_view>

namespace keldan {

// An archive's own random keys; the destructor clears the memory.
struct ArchiveKeys {
    std::array<BYTE, 32> pages{};
    std::array<BYTE, 32> header{};

    ArchiveKeys() = default;
    ArchiveKeys(const ArchiveKeys&) = default;
    ArchiveKeys& operator=(const ArchiveKeys&) = default;
    ~ArchiveKeys() { SecureZeroMemory(this, sizeof *this); }
};

// Layout: magic (16 bytes), version (4), size of the protected keys (4), the protected keys, zeros, and in the last 32
// bytes an HMAC-SHA256 over everything before it and the archive's name. The keys are protected for this machine, not
// for one account: processes of several accounts share the archives. The name (the last component of the path, case
// folded) is authenticated too, so that an archive copied over another one is detected, while a folder of archives can
// be moved on its machine.
class ArchiveHeader {
  public:
    static constexpr size_t SIZE = 4096;
    using Bytes = std::array<BYTE, SIZE>;

    // The name that the header of an archive at this path authenticates.
    [[nodiscard]] static std::wstring NameOf(std::wstring_view path);

    // Generates new keys and builds a header that contains them.
    [[nodiscard]] static HRESULT Make(std::wstring_view name, Bytes& bytes, ArchiveKeys& keys);

    // Reads the keys. 0x80070570: a byte was changed, or the header belongs to an archive of another name or machine.
    // Another failure is that of the operating system, which could not unprotect the keys now; 0x80071771
    // (ERROR_DECRYPTION_FAILED) if it missed a file of its own.
    // The latest headers are cached, since the operating system takes long to unprotect keys.
    [[nodiscard]] static HRESULT Open(std::wstring_view name, const Bytes& bytes, ArchiveKeys& keys);
};

} // namespace keldan
