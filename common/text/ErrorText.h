// Failures with an error text for the client.
#pragma once

#include "common/text/CPWStringBuffer.h"

#include <windows.h>

namespace vorna {

// For CatchAll: a function that sets the error text and returns the result. errorText and text must outlive it.
inline auto FailWith(CPWStringBuffer& errorText, HRESULT result, const wchar_t* text = L"Unknown Exception Occured") {
    return [&errorText, result, text] {
        errorText = text;
        return result;
    };
}

} // namespace vorna
