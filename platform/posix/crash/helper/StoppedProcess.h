#pragma once

#include "platform/posix/crash/CrashHelperProtocol.h"
#include "platform/posix/crash/MappedProcess.h"

#include <string>
#include <vector>

#include <sys/types.h>

namespace tev::platform
{
/// Stops the threads of a process as long as the object lives. Threads that do not stop in time have no registers; they
/// may stop later and stay so until the thread that made the object ends.
class StoppedProcess final : public MappedProcess
{
public:
    /// The registers of the ordering thread are those in the order.
    StoppedProcess(pid_t process, const DumpOrder& order);
    ~StoppedProcess();
    StoppedProcess(const StoppedProcess&) = delete;
    StoppedProcess& operator=(const StoppedProcess&) = delete;

    /// False when the system does not allow tracing, for example because a debugger traces the process already.
    bool IsStopped() const noexcept;

    std::size_t ThreadCount() const noexcept override { return m_threads.size(); }
    void GetThread(std::size_t index, DumpedThread& thread) noexcept override;

private:
    struct Thread
    {
        pid_t id;
        bool isSeized;
        bool isStopped;
        int pendingSignal; ///< received at the stop, delivered at the end
    };

    bool SeizeNewThreads(pid_t process);
    void WaitForStop(Thread& thread, int& looksLeft);

    const DumpOrder& m_order;
    std::vector<Thread> m_threads;
    std::string m_mapsText;
};
} // namespace tev::platform
