#pragma once

#include "platform/posix/crash/CrashHelperProtocol.h"
#include "platform/posix/crash/MinidumpWriter.h"

#include <chrono>
#include <vector>

#include <sys/types.h>

namespace tev::platform
{
/// A process whose threads stand still as long as the object lives. Threads that do not stop in time are named only.
class StoppedProcess final : public DumpedThreads
{
public:
    /// The registers of the thread that gave the order are those in the order.
    StoppedProcess(pid_t process, const DumpOrder& order);
    ~StoppedProcess();
    StoppedProcess(const StoppedProcess&) = delete;
    StoppedProcess& operator=(const StoppedProcess&) = delete;

    /// False when the system lets nobody look into the process, as when a debugger does already.
    bool IsStopped() const noexcept;

    std::size_t Count() const noexcept override { return m_threads.size(); }
    void Get(std::size_t index, DumpedThread& thread) noexcept override;

private:
    struct Thread
    {
        pid_t id;
        bool isSeized;
        bool isStopped;
        int pendingSignal; ///< that the stop took away
    };
    using Clock = std::chrono::steady_clock;

    bool SeizeNewThreads(pid_t process);
    void WaitForStop(Thread& thread, Clock::time_point end);

    const DumpOrder& m_order;
    std::vector<Thread> m_threads;
};
} // namespace tev::platform
