#pragma once

#include "platform/MinidumpWriter.h"

#include <ucontext.h>

struct user_regs_struct;

// Registers of a thread as minidumps hold them. Each processor has a source of its own; where there is none, the functions
// leave the state at size 0. Safe in signal handlers.
namespace tev::platform
{
/// The number of this processor in minidumps.
std::uint16_t MinidumpProcessor() noexcept;
void StateFromContext(const ucontext_t& context, MachineState& state) noexcept;
void StateFromRegisters(const user_regs_struct& registers, MachineState& state) noexcept;
} // namespace tev::platform
