// One exception type that carries a result, and one conversion of exceptions back into results.
#pragma once

#include "common/com/ProcessorFault.h"
#include "common/com/results.h"

#include <exception>
#include <new>

namespace vorna {

// Thrown inside a module; caught_result converts it into its result at the module's boundary.
class result_error : public std::exception {
  public:
    // result: a failure.
    explicit result_error(HRESULT result) : result_(result) {}
    const char* what() const noexcept override { return "a call failed"; }
    HRESULT result() const { return result_; }

  private:
    HRESULT result_;
};

// Throws the result if it is a failure.
inline void throw_if_failed(HRESULT result) {
    if (FAILED(result))
        throw result_error(result);
}

// The result of the exception that is being handled; call it in a catch block only. otherwise: the result for an
// exception of unknown type.
inline HRESULT caught_result(HRESULT otherwise = E_FAIL) noexcept {
    try {
        throw;
    } catch (const result_error& error) {
        return error.result();
    } catch (const processor_fault&) {
        return E_UNEXPECTED;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (...) {
        return otherwise;
    }
}

// Runs work, which returns an HRESULT, at the boundary of a module: exceptions become results.
template <typename Work>
HRESULT closed_door(Work work) noexcept {
    try {
        return work();
    } catch (...) {
        return caught_result();
    }
}

} // namespace vorna
