// The failures of the program's parts.
#pragma once

#include "support/Support.h"
#include "tools/Failure.h"

// The result of a failure whose message has the text; S_OK if nothing failed.
template <typename Work>
HRESULT Refusal(std::wstring_view named, Work work) {
    try {
        work();
        return S_OK;
    } catch (const vornactl::Failure& failure) {
        EXPECT_NE((failure.action + failure.text).find(named), std::wstring::npos) << support::Narrow(failure.text);
        return failure.result();
    }
}
