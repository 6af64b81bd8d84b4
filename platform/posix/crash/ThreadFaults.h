#pragma once

#include "platform/MinidumpWriter.h"

#include <cstdint>

#include <sys/types.h>

namespace tev::platform
{
/// Where the signal handlers of crashed threads have their records of the registers. A thread that crashes while another
/// one is being reported waits in its handler: a dump then has the registers of its fault, not those of the handler.
struct ThreadFaults
{
    static constexpr std::size_t kMost = 512;

    struct Fault
    {
        std::uint64_t thread;  ///< 0: unused, or being filled
        std::uint64_t context; ///< the address of its ucontext_t
    };
    Fault faults[kMost];
};

/// Notes a fault of the calling thread. Safe in signal handlers.
void NoteThreadFault(const void* context) noexcept;
/// The address of this process's table.
std::uint64_t ThreadFaultsAddress() noexcept;
/// The registers of a thread's fault by the table at that address of the process; false when there is none.
bool FindThreadFault(DumpedProcess& process, std::uint64_t table, pid_t thread, MachineState& state) noexcept;
} // namespace tev::platform
