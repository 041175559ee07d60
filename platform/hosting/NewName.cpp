#include "platform/hosting/NewName.h"

#include <objbase.h>

namespace keldan {

std::wstring MakeNewName() {
    GUID guid{};
    if (FAILED(CoCreateGuid(&guid)))
        return {};
    wchar_t text[40];
    StringFromGUID2(guid, text, ARRAYSIZE(text));
    return std::wstring(text + 1, 36);
}

} // namespace keldan
