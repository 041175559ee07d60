// The frame of an operation that lets no exception out.
#pragma once

#include "common/com/ProcessorFault.h"
#include "common/log/Logging.h"

#include <type_traits>

namespace vorna {

inline constexpr char UNKNOWN_EXCEPTION[] = "Unknown Exception Occured";

// Runs work and returns what it returns. If it throws, the text is logged at level 4 and otherwise is returned; if
// otherwise is a function, it is called and its result returned. Processor faults pass: the methods of the component's
// object give them texts of their own.
template <typename Otherwise, typename Work>
auto CatchAll(Otherwise otherwise, Work work, const char* text = UNKNOWN_EXCEPTION) -> decltype(work()) {
    try {
        return work();
    } catch (const processor_fault&) {
        throw;
    } catch (...) {
        VORNA_LOG(LOG_TRACE, "%s", text);
        if constexpr (std::is_invocable_v<Otherwise>)
            return otherwise();
        else
            return otherwise;
    }
}

// The same inside a scope trace.
template <typename Otherwise, typename Work>
auto CatchAll(Scope scope, Otherwise otherwise, Work work, const char* text = UNKNOWN_EXCEPTION) -> decltype(work()) {
    const ScopeTrace trace(scope);
    return CatchAll(otherwise, work, text);
}

} // namespace vorna
