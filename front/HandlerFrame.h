// The frame of VornaHandler's operations; for its own sources only.
#pragma once

#include "common/com/ProcessorFault.h"
#include "common/com/results.h"
#include "common/log/Logging.h"
#include "common/text/CPWStringBuffer.h"

namespace vorna {

// What work throws becomes 0x8000015E with its text. Processor faults pass: the component's own methods name them.
template <typename Work>
HRESULT Guarded(CPWStringBuffer& errorText, Work work) {
    try {
        return work();
    } catch (const processor_fault&) {
        throw;
    } catch (...) {
        VORNA_LOG(LOG_TRACE, "Unknown Exception Occured");
        errorText = L"Unknown Exception Occured";
        return RESULT_EXCEPTION;
    }
}

} // namespace vorna
