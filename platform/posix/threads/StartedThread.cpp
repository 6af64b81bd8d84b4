#include "platform/posix/threads/StartedThread.h"

#include "platform/AddressWait.h"
#include "platform/ForkHandlers.h"
#include "platform/ThreadLocks.h"
#include "platform/Threads.h"
#include "platform/posix/threads/AlternateStack.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <ctime>
#include <functional>
#include <mutex>
#include <new>

#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace tev::platform
{
namespace
{
using Clock = std::chrono::steady_clock;

constexpr std::size_t kOwnStackUse = std::size_t{32} << 10; ///< by the thread's start, and by a signal handler
constexpr int kNiceStep = 5;

thread_local std::uint64_t t_threadId TEV_NEAR_THREAD_LOCAL = 0;

// The threads that run, for OpenThread.
SystemLock g_runningLock;
StartedThread* g_firstRunning = nullptr;

void Enlist(StartedThread& thread) noexcept
{
    const std::lock_guard guard(g_runningLock);
    thread.m_next = g_firstRunning;
    if (g_firstRunning != nullptr)
        g_firstRunning->m_previous = &thread;
    g_firstRunning = &thread;
}

/// The thread has ended. In one step, because a forked child has to find each thread either in the list or ended.
void NoteEnd(StartedThread& thread) noexcept
{
    const std::lock_guard guard(g_runningLock);
    thread.m_ended.store(1, std::memory_order_release);
    (thread.m_previous == nullptr ? g_firstRunning : thread.m_previous->m_next) = thread.m_next;
    if (thread.m_next != nullptr)
        thread.m_next->m_previous = thread.m_previous;
}

void LockRunning()
{
    g_runningLock.lock();
}

void UnlockRunning()
{
    g_runningLock.unlock();
}

// Of the threads that run, the child has the one that forked, under another identifier, and not suspended: the thread that
// would resume it is not there. The others have ended there, for those that hold references to them; what they had is not
// released.
void KeepOwnThreadOnly()
{
    t_threadId = 0;
    StartedThread* thread = g_firstRunning;
    g_firstRunning = nullptr;
    while (thread != nullptr)
    {
        StartedThread& current = *thread;
        thread = current.m_next;
        current.m_next = nullptr;
        current.m_previous = nullptr;
        if (current.m_number == t_threadLocks.number)
        {
            current.m_id.store(static_cast<std::uint32_t>(CurrentThreadId()));
            current.m_request.store(0);
            current.m_killForce.store(KillForce::None);
            g_firstRunning = &current;
            continue;
        }
        current.m_isLost.store(true);
        current.m_ended.store(1, std::memory_order_release);
    }
    UnlockRunning();
}

const ForkHandler g_forkOfThreads(ForkRank::StartedThreads, &LockRunning, &UnlockRunning, &KeepOwnThreadOnly);

std::atomic<const KilledStackHook*> g_firstKilledStackHook{nullptr};

// No object with a destructor may be in this function: a killed thread jumps back to it from anywhere.
void RunProcedure(StartedThread& self)
{
    if (sigsetjmp(self.m_end, 1) == 0)
    {
        SetStoppableThread(&self);
        StandStill(self);
        self.m_hasLeftStart.store(true);
        if (!self.IsAskedToDie())
        {
            const unsigned exitCode = self.m_procedure.run(self.m_argument);
            SetStoppableThread(nullptr);
            self.m_exitCode.store(exitCode);
        }
        else
        {
            NoteKilled(self);
        }
    }
    SetStoppableThread(nullptr);
}

} // namespace

void ReportKilledStack(const StartedThread& self) noexcept
{
    KilledStackHook::CallAll(self.m_stackLow, self.m_stackTop);
}

void Leave(StartedThread& thread) noexcept
{
    thread.m_procedure.discard(thread.m_argument);
    NoteEnd(thread);
    WakeAll(thread.m_ended);
    ReleaseThread(&thread);
}

namespace
{
/// The thread also ends by the system's unwinding it (ForcedUnwind.h).
class LeaveAtEnd
{
public:
    explicit LeaveAtEnd(StartedThread& self) noexcept : m_self(self) {}
    ~LeaveAtEnd()
    {
        SetStoppableThread(nullptr);
        Leave(m_self);
    }
    LeaveAtEnd(const LeaveAtEnd&) = delete;
    LeaveAtEnd& operator=(const LeaveAtEnd&) = delete;

private:
    StartedThread& m_self;
};

int NiceOfProcess() noexcept
{
    return getpriority(PRIO_PROCESS, static_cast<id_t>(getpid()));
}

/// A new thread has the attributes of the one that started it, and a thread of the library works for others later. A
/// priority above the present one may be refused by the system.
void TakeAttributesOfProcess() noexcept
{
    cpu_set_t processors;
    if (sched_getaffinity(getpid(), sizeof processors, &processors) == 0)
        sched_setaffinity(0, sizeof processors, &processors);
    setpriority(PRIO_PROCESS, 0, NiceOfProcess());
    sigset_t faults; // which end the process without a report where they are blocked
    sigemptyset(&faults);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT})
        sigaddset(&faults, fault);
    pthread_sigmask(SIG_UNBLOCK, &faults, nullptr);
}

void* Enter(void* argument)
{
    auto& self = *static_cast<StartedThread*>(argument);
    const AlternateStack alternateStack;
    AcceptStopsOnThisThread();
    if (self.m_owner == ThreadOwner::Library)
        TakeAttributesOfProcess();
    self.m_stackTop = static_cast<const char*>(__builtin_frame_address(0));
    // The C library has its record of the thread at the end of the stack, and the thread-local storage, which may be larger than
    // a page, below it: counted from here, the size would reach into the storage of a thread whose stack lies below this one.
    self.m_stackLow = reinterpret_cast<const char*>(pthread_self()) - self.m_stackSize;
    self.m_number = NumberOfThisThread();
    Enlist(self);
    self.m_id.store(static_cast<std::uint32_t>(CurrentThreadId()));
    WakeAll(self.m_id);

    const LeaveAtEnd leaving(self);
    RunProcedure(self);
    return nullptr;
}
} // namespace

std::uint64_t CurrentThreadId() noexcept
{
    if (t_threadId == 0)
    {
        t_threadId = static_cast<std::uint64_t>(syscall(SYS_gettid));
    }
    return t_threadId;
}

KilledStackHook::KilledStackHook(Function function) noexcept
    : m_function(function), m_next(g_firstKilledStackHook.load(std::memory_order_relaxed))
{
    while (!g_firstKilledStackHook.compare_exchange_weak(m_next, this, std::memory_order_release))
    {
    }
}

void KilledStackHook::CallAll(const void* low, const void* high) noexcept
{
    const KilledStackHook* hook = g_firstKilledStackHook.load(std::memory_order_acquire);
    for (; hook != nullptr; hook = hook->m_next)
        hook->m_function(low, high);
}

void SleepThisThread(unsigned milliseconds)
{
    timespec left = {static_cast<time_t>(milliseconds / 1000), static_cast<long>(milliseconds % 1000) * 1000000};
    while (nanosleep(&left, &left) != 0 && errno == EINTR)
    {
    }
}

StartedThread* StartThread(const ThreadProcedure& procedure, void* argument, std::size_t stackSize,
                           ThreadOwner owner) noexcept
{
    PrepareStops();
    auto* const thread = new (std::nothrow) StartedThread;
    if (thread == nullptr)
        return nullptr;
    thread->m_procedure = procedure;
    thread->m_argument = argument;
    thread->m_owner = owner;

    pthread_attr_t attributes;
    bool started = pthread_attr_init(&attributes) == 0;
    if (started)
    {
        if (stackSize != 0)
        {
            const auto least = static_cast<std::size_t>(std::max(sysconf(_SC_THREAD_STACK_MIN), 0L)) + kOwnStackUse;
            started = pthread_attr_setstacksize(&attributes, std::max(stackSize, least)) == 0;
        }
        started = started && pthread_attr_getstacksize(&attributes, &thread->m_stackSize) == 0;
        started = started && pthread_create(&thread->m_thread, &attributes, &Enter, thread) == 0;
        pthread_attr_destroy(&attributes);
    }
    if (!started)
    {
        delete thread;
        return nullptr;
    }
    while (thread->m_id.load() == 0)
        WaitWhile(thread->m_id, 0);
    return thread;
}

StartedThread* OpenThread(std::uint64_t id) noexcept
{
    const std::lock_guard guard(g_runningLock);
    StartedThread* thread = g_firstRunning;
    while (thread != nullptr && (thread->m_id.load() != id || thread->m_owner != ThreadOwner::Program))
        thread = thread->m_next;
    if (thread != nullptr)
        RetainThread(thread);
    return thread;
}

void RetainThread(StartedThread* thread) noexcept
{
    thread->m_references.fetch_add(1, std::memory_order_relaxed);
}

// The thread releases its own reference itself, as the last thing that it does here.
void ReleaseThread(StartedThread* thread) noexcept
{
    if (thread->m_references.fetch_sub(1, std::memory_order_acq_rel) != 1)
        return;
    // The stack of a raw exit is leaked: a new thread on it would find the thread-specific data of the first.
    if (!thread->m_hasLeftRawly.load() && !thread->m_isLost.load())
        pthread_detach(thread->m_thread);
    delete thread;
}

std::uint64_t ThreadId(const StartedThread* thread) noexcept
{
    return thread->m_id.load();
}

bool IsWithin(const void* object, const void* low, const void* high) noexcept
{
    const std::less<const void*> isBelow;
    return !isBelow(object, low) && isBelow(object, high);
}

bool IsOnStackOf(const StartedThread* thread, const void* object) noexcept
{
    return !thread->HasEnded() && IsWithin(object, thread->m_stackLow, thread->m_stackTop);
}

std::uint64_t ThreadNumber(const StartedThread* thread) noexcept
{
    return thread->m_number;
}

bool HasEnded(const StartedThread* thread, unsigned& exitCode) noexcept
{
    if (!thread->HasEnded())
        return false;
    exitCode = thread->m_exitCode.load();
    return true;
}

bool WaitForThread(const StartedThread* thread, unsigned timeoutMs) noexcept
{
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!thread->HasEnded())
    {
        const Clock::duration left = end - Clock::now();
        if (left <= Clock::duration::zero())
            return false;
        WaitWhile(thread->m_ended, 0, left);
    }
    return true;
}

// A number from -20 to 19, of the process as a whole and of each thread separately.
bool SetThreadPriority(StartedThread* thread, int level) noexcept
{
    if (thread->HasEnded())
        return false;
    const int nice = std::clamp(NiceOfProcess() - level * kNiceStep, -20, 19);
    return setpriority(PRIO_PROCESS, thread->m_id.load(), nice) == 0;
}
} // namespace tev::platform
