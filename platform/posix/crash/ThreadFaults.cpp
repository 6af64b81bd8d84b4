#include "platform/posix/crash/ThreadFaults.h"

#include "platform/posix/crash/MachineState.h"
#include "platform/posix/crash/ProcessThreads.h"

#include <atomic>
#include <cstddef>

#include <sys/syscall.h>
#include <unistd.h>

namespace tev::platform
{
namespace
{
/// The part of the record that the kernel writes on every processor; what follows it depends on the processor's features.
constexpr std::size_t kContextSize = offsetof(ucontext_t, uc_sigmask);

ThreadFaults g_faults;
std::atomic<std::size_t> g_count{0};
} // namespace

void NoteThreadFault(const void* context) noexcept
{
    const std::size_t index = g_count.fetch_add(1);
    if (index >= ThreadFaults::kMost)
        return;
    g_faults.faults[index].context = reinterpret_cast<std::uintptr_t>(context);
    std::atomic_thread_fence(std::memory_order_release); // a dump may stop this thread anywhere
    g_faults.faults[index].thread = static_cast<std::uint64_t>(OwnThreadId());
}

std::uint64_t ThreadFaultsAddress() noexcept
{
    return reinterpret_cast<std::uintptr_t>(&g_faults);
}

bool FindThreadFault(DumpedProcess& process, std::uint64_t table, pid_t thread, MachineState& state) noexcept
{
    if (table == 0)
        return false;
    for (std::size_t i = 0; i < ThreadFaults::kMost; ++i)
    {
        ThreadFaults::Fault fault = {};
        if (!process.Read(table + i * sizeof fault, &fault, sizeof fault) || fault.thread == 0)
            return false;
        ucontext_t context = {};
        if (fault.thread == static_cast<std::uint64_t>(thread))
        {
            if (!process.Read(fault.context, &context, kContextSize))
                return false;
            StateFromContext(context, state);
            return state.size != 0;
        }
    }
    return false;
}
} // namespace tev::platform
