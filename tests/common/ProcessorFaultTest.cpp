// Faults of every kind end the guarded call and nothing else.
#include "common/com/ProcessorFault.h"

#include "support/Support.h"

using namespace vorna;

namespace {

constexpr unsigned short ALL_MASKED = 0x037F;
constexpr unsigned short DIVISION_UNMASKED = ALL_MASKED & ~0x0004;

void SetControl(unsigned short control) {
    __asm__ volatile("fldcw %0" : : "m"(control));
}

unsigned short Control() {
    unsigned short control;
    __asm__ volatile("fnstcw %0" : "=m"(control));
    return control;
}

void DivideByZero() {
    SetControl(DIVISION_UNMASKED);
    // The values left behind fill the register stack after a few calls.
    __asm__ volatile("fld1\n\tfldz\n\tfdivrp\n\tfwait" : : : "memory");
}

// The fault's code; 0 if there was none.
unsigned long FaultOf(void (*work)()) {
    try {
        call_guarded(work);
    } catch (const processor_fault& fault) {
        return fault.code();
    }
    return 0;
}

EXCEPTION_DISPOSITION __cdecl Continue(EXCEPTION_RECORD* record, void*, CONTEXT*, void*) {
    const bool informational = (record->ExceptionCode & 0xF0000000) == 0x40000000;
    return informational ? ExceptionContinueExecution : ExceptionContinueSearch;
}

} // namespace

TEST(ProcessorFault, EveryKindIsCaught) {
    const struct {
        unsigned long code;
        void (*work)();
    } cases[] = {
        {EXCEPTION_ACCESS_VIOLATION, [] { __asm__ volatile("movb $1, 16"
                                                           :
                                                           :
                                                           : "memory"); }},
        {EXCEPTION_INT_DIVIDE_BY_ZERO,
         [] {
             __asm__ volatile("xorl %%ecx, %%ecx\n\tdivl %%ecx" : : : "eax", "ecx", "edx");
         }},
        {EXCEPTION_ILLEGAL_INSTRUCTION, [] { __asm__ volatile("ud2"); }},
        {EXCEPTION_BREAKPOINT, [] { __asm__ volatile("int3"); }},
        {EXCEPTION_SINGLE_STEP,
         [] {
             __asm__ volatile("pushfl\n\torl $0x100, (%%esp)\n\tpopfl\n\tnop" : : : "cc", "memory");
         }},
        {EXCEPTION_FLT_DIVIDE_BY_ZERO, DivideByZero},
        {0xE06D7363, [] { RaiseException(0xE06D7363, EXCEPTION_NONCONTINUABLE, 0, nullptr); }},
        {0x80000029, [] { RaiseException(0x80000029, 0, 0, nullptr); }},
    };
    for (const auto& item : cases)
        EXPECT_EQ(item.code, FaultOf(item.work));
}

TEST(ProcessorFault, FloatingPointUnitWorksAfterFaults) {
    // A host may run with unmasked exceptions of its own; they stay unmasked.
    for (unsigned short control : {ALL_MASKED, DIVISION_UNMASKED}) {
        SetControl(control);
        for (int times = 0; times < 9; ++times)
            EXPECT_EQ(EXCEPTION_FLT_DIVIDE_BY_ZERO, FaultOf(DivideByZero));
        volatile double three = 3;
        EXPECT_EQ(9.0, three * three);
        EXPECT_EQ(control, Control());
    }
    SetControl(ALL_MASKED);
}

TEST(ProcessorFault, NoticesToADebuggerPass) {
    EXCEPTION_REGISTRATION_RECORD frame{};
    frame.Handler = reinterpret_cast<PEXCEPTION_ROUTINE>(reinterpret_cast<void*>(&Continue));
    __asm__ volatile("movl %%fs:0, %0" : "=r"(frame.Next));
    __asm__ volatile("movl %0, %%fs:0" : : "r"(&frame) : "memory");
    for (unsigned long code : {0x40010006ul, 0x406D1388ul}) {
        bool finished = false;
        call_guarded([&] {
            RaiseException(code, 0, 0, nullptr);
            finished = true;
        });
        EXPECT_TRUE(finished);
    }
    __asm__ volatile("movl %0, %%fs:0" : : "r"(frame.Next) : "memory");
}
