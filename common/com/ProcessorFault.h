// Converts processor faults (access violations, divisions by zero, breakpoints, stack overflows, foreign structured
// exceptions) into C++ exceptions.
//
// This compiler has no structured exception handling, so a frame is put on the system's handler chain by hand. A fault
// abandons the frames between it and the guard without running their destructors. What must be released even then (a
// mutex that other processes wait for) is registered with an on_fault object.
#pragma once

#include <exception>
#include <utility>

namespace vorna {

// Thrown by call_guarded after a fault.
class processor_fault : public std::exception {
  public:
    explicit processor_fault(unsigned long code) : code_(code) {}
    const char* what() const noexcept override { return "processor fault"; }
    // The system's exception code, for example 0xC0000005.
    unsigned long code() const { return code_; }

  private:
    unsigned long code_;
};

// Runs action(argument) if a fault abandons the frame that holds the object. One thread; strictly nested.
class on_fault {
  public:
    on_fault(void (*action)(void*), void* argument);
    ~on_fault();
    on_fault(const on_fault&) = delete;
    on_fault& operator=(const on_fault&) = delete;

  private:
    friend void run_abandoned(const on_fault* until);

    void (*action_)(void*);
    void* argument_;
    on_fault* outer_;
};

// Runs work(argument), which must not throw. Returns 0, or the exception code of the fault that ended it.
unsigned long run_guarded(void (*work)(void*), void* argument);

// Runs function; a fault inside it becomes a processor_fault, other exceptions pass unchanged. After a fault the x87
// unit has an empty register stack and its control word of before the call.
template <typename Function>
void call_guarded(Function&& function) {
    struct call {
        Function& function;
        std::exception_ptr thrown;
    } state{function, nullptr};
    unsigned long code = run_guarded(
        [](void* argument) {
            auto& self = *static_cast<call*>(argument);
            try {
                self.function();
            } catch (...) {
                self.thrown = std::current_exception();
            }
        },
        &state);
    if (code != 0)
        throw processor_fault(code);
    if (state.thrown)
        std::rethrow_exception(state.thrown);
}

} // namespace vorna
