#include "platform/posix/crash/OwnDump.h"

#include "platform/AddressWait.h"
#include "platform/posix/crash/CrashFiles.h"
#include "platform/posix/crash/MachineState.h"
#include "platform/posix/crash/MappedProcess.h"
#include "platform/posix/crash/ProcessFacts.h"
#include "platform/posix/crash/ProcessThreads.h"
#include "platform/posix/crash/ThreadFaults.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <new>
#include <string_view>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace tev::platform
{
namespace
{
constexpr std::size_t kMostStopped = 2048;
constexpr std::size_t kLongestMaps = std::size_t{1} << 20;
constexpr std::size_t kProcessSize = 8192;
constexpr auto kLongestWait = std::chrono::milliseconds(500);
/// For the record, the dump, and the archive with what it is made of.
constexpr int kReserved = 6;

/// The registers of a stopped thread.
struct Slot
{
    std::atomic<std::uint32_t> isTaken;
    MachineState state;
};

/// Allocated in advance and never freed: a thread may reach its slot late.
struct Memory
{
    std::atomic<std::uint32_t> isStopping;
    std::atomic<std::uint32_t> threadCount;
    pid_t threads[kMostStopped];
    Slot slots[kMostStopped];
    char maps[kLongestMaps];
    DumpFacts facts;
    alignas(64) char process[kProcessSize];
    alignas(64) char workspace[kDumpWorkspace];
};

std::atomic<Memory*> g_memory{nullptr};
std::atomic<bool> g_isBusy{false};
std::atomic<int> g_reserved[kReserved] = {-1, -1, -1, -1, -1, -1};

/// Signal handler of the dumped threads: stores the registers and waits.
void StandForDump(int, siginfo_t*, void* context)
{
    const int error = errno;
    Memory& memory = *g_memory.load();
    const pid_t self = OwnThreadId();
    const std::uint32_t count = memory.threadCount.load();
    for (std::uint32_t i = 0; i < count && memory.isStopping.load() != 0; ++i)
    {
        if (memory.threads[i] != self)
            continue;
        StateFromContext(*static_cast<const ucontext_t*>(context), memory.slots[i].state);
        memory.slots[i].isTaken.store(1, std::memory_order_release);
        while (memory.isStopping.load() != 0)
            WaitWhile(memory.isStopping, 1);
    }
    errno = error;
}

/// A signal that the program does not use, with the handler above, which stays installed: the signal may still be pending
/// on a thread that blocks it. 0 when there is none.
int StopSignal() noexcept
{
    for (int number = SIGRTMAX; number > SIGRTMIN; --number)
    {
        struct sigaction standing = {};
        if (sigaction(number, nullptr, &standing) != 0)
            continue;
        const bool isOurs = (standing.sa_flags & SA_SIGINFO) != 0 && standing.sa_sigaction == StandForDump;
        if (!isOurs && ((standing.sa_flags & SA_SIGINFO) != 0 || standing.sa_handler != SIG_DFL))
            continue;
        struct sigaction action = {};
        action.sa_sigaction = StandForDump;
        action.sa_flags = SA_SIGINFO | SA_RESTART;
        sigfillset(&action.sa_mask);
        if (isOurs || sigaction(number, &action, nullptr) == 0)
            return number;
    }
    return 0;
}

bool HasDebugger() noexcept
{
    constexpr std::string_view kKey = "\nTracerPid:\t";
    char status[2048];
    const std::string_view text(status, ReadWhole("/proc/self/status", status, sizeof status));
    const std::size_t place = text.find(kKey);
    return place != text.npos && text.substr(place + kKey.size(), 1) != "0";
}

/// This process while its other threads are stopped.
class StoppedThreads final : public MappedProcess
{
public:
    StoppedThreads(Memory& memory, const DumpOrder& order) noexcept
        : MappedProcess(getpid()), m_memory(memory), m_order(order)
    {
        const std::size_t count = ListThreads(getpid(), order.thread, memory.threads, kMostStopped);
        for (std::size_t i = 0; i < count; ++i)
            memory.slots[i].isTaken.store(0);
        memory.threadCount.store(static_cast<std::uint32_t>(count));
        memory.isStopping.store(1);
        // A debugger would stop at each of the signals.
        const int number = HasDebugger() ? 0 : StopSignal();
        const pid_t self = OwnThreadId();
        for (std::size_t i = 0; i < count && number != 0; ++i)
        {
            if (memory.threads[i] != self && memory.threads[i] != order.thread)
                syscall(SYS_tgkill, getpid(), memory.threads[i], number);
        }
        if (number != 0)
            WaitForAll(count, self);
        SetMaps({memory.maps, ReadWhole("/proc/self/maps", memory.maps, kLongestMaps)});
    }
    ~StoppedThreads()
    {
        m_memory.isStopping.store(0);
        WakeAll(m_memory.isStopping);
    }
    StoppedThreads(const StoppedThreads&) = delete;
    StoppedThreads& operator=(const StoppedThreads&) = delete;

    std::size_t ThreadCount() const noexcept override { return m_memory.threadCount.load(); }
    void GetThread(std::size_t index, DumpedThread& thread) noexcept override
    {
        const pid_t id = m_memory.threads[index];
        thread.id = static_cast<std::uint32_t>(id);
        thread.state.size = 0;
        if (id == m_order.thread)
            thread.state = m_order.state;
        else if (!FindThreadFault(*this, m_order.threadFaults, id, thread.state) &&
                 m_memory.slots[index].isTaken.load() != 0)
            thread.state = m_memory.slots[index].state;
    }

private:
    void WaitForAll(std::size_t count, pid_t self) const noexcept
    {
        const auto end = std::chrono::steady_clock::now() + kLongestWait;
        for (std::size_t i = 0; i < count; ++i)
        {
            const bool isWaitedFor = m_memory.threads[i] != self && m_memory.threads[i] != m_order.thread;
            while (isWaitedFor && m_memory.slots[i].isTaken.load(std::memory_order_acquire) == 0 &&
                   std::chrono::steady_clock::now() < end)
            {
                const timespec shortly = {0, 20000};
                nanosleep(&shortly, nullptr);
            }
        }
    }

    Memory& m_memory;
    const DumpOrder& m_order;
};
static_assert(sizeof(StoppedThreads) <= kProcessSize);
} // namespace

void PrepareOwnDump() noexcept
{
    if (g_memory.load() == nullptr)
    {
        void* const memory =
            mmap(nullptr, sizeof(Memory), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (memory != MAP_FAILED)
            g_memory.store(static_cast<Memory*>(memory));
    }
    for (std::atomic<int>& reserved : g_reserved)
    {
        if (reserved.load() < 0)
            reserved.store(open("/dev/null", O_RDONLY | O_CLOEXEC));
    }
}

void ReleaseReservedDescriptors() noexcept
{
    for (std::atomic<int>& reserved : g_reserved)
    {
        const int descriptor = reserved.exchange(-1);
        if (descriptor >= 0)
            close(descriptor);
    }
}

bool WriteOwnDump(const char* path, const DumpOrder& order) noexcept
{
    Memory* const memory = g_memory.load();
    if (memory == nullptr || g_isBusy.exchange(true))
        return false;
    bool isWritten = false;
    {
        PrivateDumpFile file(path);
        if (file.IsOpen())
        {
            TakeFacts(getpid(), memory->facts);
            // Not on the small stack of a signal handler.
            auto* const process = new (memory->process) StoppedThreads(*memory, order);
            const DumpSubject subject = {static_cast<std::uint32_t>(getpid()),
                                         order.signal,
                                         order.signalCode,
                                         order.faultAddress,
                                         process->Maps(),
                                         memory->facts,
                                         *process};
            isWritten = WriteMinidump(file, subject, memory->workspace);
            process->~StoppedThreads();
        }
        if (isWritten)
            file.Keep();
    }
    g_isBusy.store(false);
    return isWritten;
}
} // namespace tev::platform
