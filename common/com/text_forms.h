// Identifiers and codes in the notations that the registry, logs and people use.
#pragma once

#include "common/com/result_error.h"

#include <objbase.h>

#include <iterator>
#include <string>

namespace vorna {

// With braces, as in the registry: {00000000-0000-0000-0000-000000000000}.
inline std::wstring guid_text(REFGUID guid) {
    wchar_t text[39];
    StringFromGUID2(guid, text, static_cast<int>(std::size(text)));
    return text;
}

// The text of a new GUID. Throws result_error if the system cannot create one.
inline std::wstring new_guid_text() {
    GUID guid{};
    throw_if_failed(CoCreateGuid(&guid));
    return guid_text(guid);
}

// Eight digits: 0x8000015E.
inline std::wstring hex_text(HRESULT result) {
    wchar_t text[11];
    swprintf(text, std::size(text), L"0x%08lX", static_cast<unsigned long>(result));
    return text;
}

} // namespace vorna
