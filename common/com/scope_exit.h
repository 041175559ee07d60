// Runs a function when the scope is left, on every path, unless it was released.
#pragma once

#include <utility>

namespace vorna {

template <typename Function>
class scope_exit {
  public:
    explicit scope_exit(Function function) : function_(std::move(function)) {}
    ~scope_exit() {
        if (armed_)
            function_();
    }
    scope_exit(const scope_exit&) = delete;
    scope_exit& operator=(const scope_exit&) = delete;

    void release() { armed_ = false; }

  private:
    Function function_;
    bool armed_ = true;
};

} // namespace vorna
