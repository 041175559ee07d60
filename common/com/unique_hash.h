// Owners of handles of the operating system's hash functions.
#pragma once

#include "common/com/unique_any.h"

#include <bcrypt.h>

namespace vorna {

struct algorithm_traits {
    using type = BCRYPT_ALG_HANDLE;
    static type invalid() { return nullptr; }
    static void close(type value) { BCryptCloseAlgorithmProvider(value, 0); }
};
using unique_algorithm = unique_any<algorithm_traits>;

struct hash_traits {
    using type = BCRYPT_HASH_HANDLE;
    static type invalid() { return nullptr; }
    static void close(type value) { BCryptDestroyHash(value); }
};
using unique_hash = unique_any<hash_traits>;

} // namespace vorna
