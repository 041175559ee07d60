#include "common/com/registry.h"

namespace vorna {

std::optional<std::wstring> registry_text(HKEY root, const std::wstring& key, const wchar_t* name) {
    std::wstring value(MAX_PATH, L'\0');
    for (;;) {
        DWORD bytes = static_cast<DWORD>(value.size()) * DWORD{sizeof(wchar_t)};
        // RRF_RT_REG_SZ accepts REG_EXPAND_SZ too.
        const LSTATUS status = RegGetValueW(root, key.c_str(), name, RRF_RT_REG_SZ, nullptr, value.data(), &bytes);
        if (status == ERROR_SUCCESS)
            return value.substr(0, value.find(L'\0'));
        // The value may grow between two calls.
        if (status != ERROR_MORE_DATA)
            return std::nullopt;
        value.resize(value.size() * 2);
    }
}

} // namespace vorna
