// The operating system's hash functions.
#pragma once

#include "common/com/unique_any.h"

#include <bcrypt.h>

#include <array>
#include <cstddef>
#include <initializer_list>
#include <span>

namespace vorna {

struct algorithm_traits {
    using type = BCRYPT_ALG_HANDLE;
    static type invalid() { return nullptr; }
    static void close(type value) { BCryptCloseAlgorithmProvider(value, 0); }
};
using unique_algorithm = unique_any<algorithm_traits>;

using unique_hash = unique_any<null_traits<BCRYPT_HASH_HANDLE, BCryptDestroyHash>>;

using sha256_digest = std::array<BYTE, 32>;

// SHA-256 of the concatenated parts, or their HMAC-SHA256 if key is not empty. E_OUTOFMEMORY if the system function
// fails. Callers must link bcrypt.
[[nodiscard]] inline HRESULT sha256(std::initializer_list<std::span<const std::byte>> parts,
                                    std::span<const std::byte> key, sha256_digest& digest) {
    const auto bytes = [](std::span<const std::byte> part) {
        return const_cast<PUCHAR>(reinterpret_cast<const UCHAR*>(part.data()));
    };
    unique_algorithm algorithm;
    unique_hash hash;
    NTSTATUS status = BCryptOpenAlgorithmProvider(algorithm.put(), BCRYPT_SHA256_ALGORITHM, nullptr,
                                                  key.empty() ? 0 : BCRYPT_ALG_HANDLE_HMAC_FLAG);
    if (status >= 0)
        status = BCryptCreateHash(algorithm.get(), hash.put(), nullptr, 0, bytes(key), key.size(), 0);
    for (const auto part : parts)
        if (status >= 0)
            status = BCryptHashData(hash.get(), bytes(part), part.size(), 0);
    if (status >= 0)
        status = BCryptFinishHash(hash.get(), digest.data(), digest.size(), 0);
    return status >= 0 ? S_OK : E_OUTOFMEMORY;
}

} // namespace vorna
