// Runs an operation and converts its exceptions into a log line and a result.
#pragma once

#include "common/com/ProcessorFault.h"
#include "common/log/Logging.h"

#include <type_traits>

namespace vorna {

inline constexpr char UNKNOWN_EXCEPTION[] = "Unknown Exception Occured";

// Runs work and returns its result. If it throws, logs the text at level 4 and returns otherwise or, if otherwise is a
// function, its result. Processor faults are rethrown, because the methods of the component's object report them with
// separate texts.
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

// The same inside a ScopeTrace.
template <typename Otherwise, typename Work>
auto CatchAll(Scope scope, Otherwise otherwise, Work work, const char* text = UNKNOWN_EXCEPTION) -> decltype(work()) {
    const ScopeTrace trace(scope);
    return CatchAll(otherwise, work, text);
}

} // namespace vorna
