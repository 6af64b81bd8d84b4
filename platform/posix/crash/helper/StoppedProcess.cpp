#include "platform/posix/crash/helper/StoppedProcess.h"

#include "platform/posix/crash/CrashFiles.h"
#include "platform/posix/crash/MachineState.h"
#include "platform/posix/crash/ProcessThreads.h"
#include "platform/posix/crash/ThreadFaults.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include <elf.h>
#include <sys/ptrace.h>
#include <sys/uio.h>
#include <sys/user.h>
#include <sys/wait.h>

namespace tev::platform
{
namespace
{
constexpr std::size_t kMostThreads = 8192;
constexpr std::size_t kLongestMaps = std::size_t{16} << 20;
// About a second for all threads together. Looks are counted and not the time, which also passes while this process is
// not run.
constexpr int kMostLooks = 10000;
constexpr int kMostRounds = 10;
} // namespace

StoppedProcess::StoppedProcess(pid_t process, const DumpOrder& order) : MappedProcess(process), m_order(order)
{
    int looksLeft = kMostLooks;
    // Threads that still run may start others.
    for (int round = 0; round < kMostRounds && SeizeNewThreads(process); ++round)
    {
        for (Thread& thread : m_threads)
            WaitForStop(thread, looksLeft);
    }
    m_mapsText.resize(kLongestMaps);
    m_mapsText.resize(
        ReadWhole(("/proc/" + std::to_string(process) + "/maps").c_str(), m_mapsText.data(), kLongestMaps));
    SetMaps(m_mapsText);
}

StoppedProcess::~StoppedProcess()
{
    for (const Thread& thread : m_threads)
    {
        if (thread.isStopped)
            ptrace(PTRACE_DETACH, thread.id, nullptr, thread.pendingSignal);
    }
}

bool StoppedProcess::IsStopped() const noexcept
{
    return std::any_of(m_threads.begin(), m_threads.end(), [](const Thread& thread) { return thread.isStopped; });
}

/// Returns whether there were any.
bool StoppedProcess::SeizeNewThreads(pid_t process)
{
    std::vector<pid_t> ids(kMostThreads);
    ids.resize(ListThreads(process, m_order.thread, ids.data(), ids.size()));
    bool found = false;
    for (const pid_t id : ids)
    {
        if (std::any_of(m_threads.begin(), m_threads.end(), [=](const Thread& thread) { return thread.id == id; }))
            continue;
        found = true;
        const bool isSeized =
            ptrace(PTRACE_SEIZE, id, nullptr, nullptr) == 0 && ptrace(PTRACE_INTERRUPT, id, nullptr, nullptr) == 0;
        m_threads.push_back({id, isSeized, false, 0});
    }
    return found;
}

void StoppedProcess::WaitForStop(Thread& thread, int& looksLeft)
{
    constexpr auto kBetweenLooks = std::chrono::microseconds(50);
    while (thread.isSeized && !thread.isStopped)
    {
        int status = 0;
        const pid_t answer = waitpid(thread.id, &status, __WALL | WNOHANG);
        if (answer == thread.id && WIFSTOPPED(status))
        {
            thread.isStopped = true;
            const bool isOwnStop = status >> 16 == PTRACE_EVENT_STOP;
            thread.pendingSignal = isOwnStop ? 0 : WSTOPSIG(status);
        }
        else if (answer != 0 || --looksLeft <= 0)
        {
            thread.isSeized = false; // it has ended, or sleeps uninterruptibly
        }
        else
        {
            std::this_thread::sleep_for(kBetweenLooks);
        }
    }
}

void StoppedProcess::GetThread(std::size_t index, DumpedThread& thread) noexcept
{
    const Thread& from = m_threads[index];
    thread.id = static_cast<std::uint32_t>(from.id);
    thread.state.size = 0;
    if (from.id == m_order.thread)
        thread.state = m_order.state;
    if (from.id == m_order.thread || !from.isStopped ||
        FindThreadFault(*this, m_order.threadFaults, from.id, thread.state))
        return;
    user_regs_struct registers = {};
    iovec target = {&registers, sizeof registers};
    if (ptrace(PTRACE_GETREGSET, from.id, NT_PRSTATUS, &target) == 0)
        StateFromRegisters(registers, thread.state);
}
} // namespace tev::platform
