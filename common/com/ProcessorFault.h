// Turns processor faults (access violations, divisions by zero, stack overflows, foreign structured exceptions) into
// something that code with destructors can live with.
//
// This compiler has no structured exception handling of its own, so a frame is put on the system's handler chain by
// hand. A fault abandons the frames between it and the guard: their destructors do not run. What must not be left
// behind (a mutex that other processes wait for) is registered with an on_fault object.
#pragma once

#include <exception>
#include <utility>

namespace vorna {

// Thrown where a guarded call into foreign code has faulted.
class processor_fault : public std::exception {
  public:
    explicit processor_fault(unsigned long code) : code_(code) {}
    const char* what() const noexcept override { return "processor fault"; }
    // The system's exception code, for example 0xC0000005.
    unsigned long code() const { return code_; }

  private:
    unsigned long code_;
};

// While it lives, action(argument) is run if a fault abandons the frame that holds it. One thread; strictly nested.
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

// Runs function; a fault inside becomes a processor_fault exception, other exceptions pass.
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
