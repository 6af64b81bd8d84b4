#pragma once

#include <cstddef>
#include <cstdint>

#include <ucontext.h>

struct user_regs_struct;

namespace tev::platform
{
/// The registers of a thread, in the form in which a minidump holds them.
struct MachineState
{
    static constexpr std::size_t kSize = 1232;

    unsigned char bytes[kSize];
    std::uint64_t stackPointer;
    std::uint64_t instruction;
};

/// Whether registers of this kind of processor are supported. Elsewhere the functions below give zeros.
bool KnowsMachineState() noexcept;

// Safe in signal handlers.
void StateFromContext(const ucontext_t& context, MachineState& state) noexcept;
void StateFromRegisters(const user_regs_struct& registers, MachineState& state) noexcept;

/// What a stack walk needs: rbx, rbp, rsp, r12 to r15, rip.
struct FrameRegisters
{
    std::uint64_t values[8] = {};
};
void StateFromFrame(const FrameRegisters& registers, MachineState& state) noexcept;

/// Takes the registers of the function that calls this, whose frame must still exist when its stack is read.
[[gnu::always_inline]] inline void TakeFrame([[maybe_unused]] FrameRegisters& registers) noexcept
{
#if defined(__x86_64__)
    __asm__ volatile("movq %%rbx, (%0)\n\tmovq %%rbp, 8(%0)\n\tmovq %%rsp, 16(%0)\n\tmovq %%r12, 24(%0)\n\t"
                     "movq %%r13, 32(%0)\n\tmovq %%r14, 40(%0)\n\tmovq %%r15, 48(%0)\n\t"
                     "leaq 0(%%rip), %%rax\n\tmovq %%rax, 56(%0)"
                     :
                     : "r"(registers.values)
                     : "rax", "memory");
#endif
}
} // namespace tev::platform
