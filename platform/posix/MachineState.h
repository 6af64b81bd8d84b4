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

/// Whether registers of this kind of processor can be told at all. Elsewhere the functions below give zeros.
bool KnowsMachineState() noexcept;

// Safe in signal handlers.
void StateFromContext(const ucontext_t& context, MachineState& state) noexcept;
void StateFromRegisters(const user_regs_struct& registers, MachineState& state) noexcept;
} // namespace tev::platform
