#include "common/com/ProcessorFault.h"

#include <windows.h>

#include <malloc.h>

namespace vorna {

void run_abandoned(const on_fault* until);

namespace {

thread_local on_fault* innermost = nullptr;

// The registration record that the system's dispatcher finds, with the state needed to jump back to the guard.
struct guard_frame {
    EXCEPTION_REGISTRATION_RECORD registration;
    void* jump[5];
    on_fault* outer;
    volatile DWORD code;
    // The control word of the x87 unit on entry.
    unsigned short control;
};

constexpr DWORD UNWINDING = 0x2 | 0x4; // EXCEPTION_UNWINDING, EXCEPTION_EXIT_UNWIND

// Codes of informational severity (debugger output, the name of a thread), after which execution continues. Every other
// code ends the guarded call, also a breakpoint and a single step: an attached debugger sees them before any frame
// does.
bool is_notice(DWORD code) {
    return (code & 0xF0000000) == 0x40000000;
}

unsigned short x87_control() {
    unsigned short control;
    __asm__ volatile("fnstcw %0" : "=m"(control));
    return control;
}

// Clears the register stack and the pending exceptions: an exception that stays pending is raised again by the next x87
// instruction, outside of the guard.
void reset_x87(unsigned short control) {
    __asm__ volatile("fninit\n\tfldcw %0" : : "m"(control));
}

EXCEPTION_DISPOSITION __cdecl handle_fault(EXCEPTION_RECORD* record, void* frame, CONTEXT*, void*) {
    if ((record->ExceptionFlags & UNWINDING) != 0 || is_notice(record->ExceptionCode))
        return ExceptionContinueSearch;
    // RtlUnwind may change registers, so what is needed after it is kept in memory.
    guard_frame* volatile guard = static_cast<guard_frame*>(frame);
    guard->code = record->ExceptionCode;
    reset_x87(guard->control);
    // Must run before the jump, because the next call after it overwrites the abandoned frames.
    run_abandoned(guard->outer);
    RtlUnwind(frame, nullptr, record, nullptr);
    // Not the C library's longjmp, which expects every record on the chain to come from its own compiler.
    __builtin_longjmp(guard->jump, 1);
}

EXCEPTION_REGISTRATION_RECORD* chain_head() {
    EXCEPTION_REGISTRATION_RECORD* head;
    __asm__ volatile("movl %%fs:0, %0" : "=r"(head));
    return head;
}

void set_chain_head(EXCEPTION_REGISTRATION_RECORD* head) {
    __asm__ volatile("movl %0, %%fs:0" : : "r"(head) : "memory");
}

} // namespace

on_fault::on_fault(void (*action)(void*), void* argument) : action_(action), argument_(argument), outer_(innermost) {
    innermost = this;
}

on_fault::~on_fault() {
    innermost = outer_;
}

void run_abandoned(const on_fault* until) {
    while (innermost != until) {
        on_fault* last = innermost;
        innermost = last->outer_;
        last->action_(last->argument_);
    }
}

__attribute__((noinline)) unsigned long run_guarded(void (*work)(void*), void* argument) {
    guard_frame guard;
    guard.outer = innermost;
    guard.code = 0;
    guard.control = x87_control();
    guard.registration.Next = chain_head();
    guard.registration.Handler = reinterpret_cast<PEXCEPTION_ROUTINE>(reinterpret_cast<void*>(&handle_fault));
    if (__builtin_setjmp(guard.jump) == 0) {
        set_chain_head(&guard.registration);
        work(argument);
        set_chain_head(guard.registration.Next);
        return 0;
    }
    set_chain_head(guard.registration.Next);
    if (guard.code == EXCEPTION_STACK_OVERFLOW)
        _resetstkoflw();
    return guard.code;
}

} // namespace vorna
