#if !defined(__x86_64__)

#include "platform/posix/crash/MachineState.h"

namespace tev::platform
{
std::uint16_t MinidumpProcessor() noexcept
{
    return minidump::kUnknownProcessor;
}

void StateFromContext(const ucontext_t&, MachineState& state) noexcept
{
    state.size = 0;
}

void StateFromRegisters(const user_regs_struct&, MachineState& state) noexcept
{
    state.size = 0;
}
} // namespace tev::platform

#endif
