// Suspension and forced ends of threads. Both are requested in the thread's m_request and notified by a signal, whose
// handler blocks or jumps to the thread's end when the place where the thread was interrupted allows it. If it does not,
// the handler returns and the signal is sent again a little later. A thread that locks keep from stopping also stops by
// itself when it releases them, after the last signal, too.

#include "platform/AddressWait.h"
#include "platform/SharedWork.h"
#include "platform/ThreadLocks.h"
#include "platform/posix/threads/StartedThread.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <mutex>

#include <link.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

namespace tev::platform
{
namespace
{
using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kSuspendTime{500};
constexpr std::chrono::milliseconds kKillWithoutLocksTime{100};
constexpr std::chrono::milliseconds kKillGentlyTime{1000};
constexpr std::chrono::milliseconds kKillTime{2000};
constexpr std::chrono::microseconds kRetryTime{500};
constexpr unsigned kPatience = 200; ///< refusals after which a thread is stopped although it holds locks of the program

constexpr int kFirstSignalToTry = 7; ///< from the first real-time signal; the lowest are used most often

// 0: the program uses every signal, so threads cannot be stopped.
int g_stopSignal = 0;

thread_local StartedThread* t_stoppable TEV_NEAR_THREAD_LOCAL = nullptr;

/// Where the code of the C and C++ libraries lies. They never move, and none of them is loaded later.
struct CodeRange
{
    std::uintptr_t begin;
    std::uintptr_t end;
};
constexpr std::size_t kMostCodeRanges = 16;
CodeRange g_runtimeCode[kMostCodeRanges];
std::size_t g_runtimeCodeCount = 0;

int NoteRuntimeCode(dl_phdr_info* info, std::size_t, void*) noexcept
{
    static constexpr const char* kRuntimes[] = {"/libc.so", "/ld-linux", "/libstdc++.so", "/libc++", "/libgcc_s.so"};
    bool isRuntime = false;
    for (const char* const name : kRuntimes)
        isRuntime = isRuntime || (info->dlpi_name != nullptr && std::strstr(info->dlpi_name, name) != nullptr);
    for (int i = 0; isRuntime && i < info->dlpi_phnum && g_runtimeCodeCount < kMostCodeRanges; ++i)
    {
        const auto& segment = info->dlpi_phdr[i];
        if (segment.p_type != PT_LOAD || (segment.p_flags & PF_X) == 0)
            continue;
        const std::uintptr_t begin = info->dlpi_addr + segment.p_vaddr;
        g_runtimeCode[g_runtimeCodeCount++] = {begin, begin + segment.p_memsz};
    }
    return 0;
}

bool IsRuntimeCode(std::uintptr_t at) noexcept
{
    for (std::size_t i = 0; i < g_runtimeCodeCount; ++i)
    {
        if (at >= g_runtimeCode[i].begin && at < g_runtimeCode[i].end)
            return true;
    }
    return false;
}

// A blocking call has just been interrupted by the signal, or is about to be restarted. The calls by which the memory
// manager gets more memory are not blocking ones, and it holds its lock around them.
bool IsInWaitingCall([[maybe_unused]] const ucontext_t& context) noexcept
{
#if defined(__x86_64__)
    constexpr unsigned char kSystemCall[] = {0x0F, 0x05};
    const auto* const at = reinterpret_cast<const unsigned char*>(context.uc_mcontext.gregs[REG_RIP]);
    const auto result = context.uc_mcontext.gregs[REG_RAX];
    if (std::memcmp(at - sizeof kSystemCall, kSystemCall, sizeof kSystemCall) == 0 && result == -EINTR)
        return true;
    if (std::memcmp(at, kSystemCall, sizeof kSystemCall) != 0)
        return false;
    switch (result)
    {
    case SYS_mmap:
    case SYS_mprotect:
    case SYS_munmap:
    case SYS_brk:
    case SYS_mremap:
    case SYS_madvise:
        return false;
    default:
        return true;
    }
#else
    return false;
#endif
}

std::uintptr_t InterruptedAt([[maybe_unused]] const ucontext_t& context) noexcept
{
#if defined(__x86_64__)
    return static_cast<std::uintptr_t>(context.uc_mcontext.gregs[REG_RIP]);
#elif defined(__aarch64__)
    return context.uc_mcontext.pc;
#else
#error "say where this processor's context keeps the address of the interrupted instruction"
#endif
}

std::uint64_t HeldLocks() noexcept
{
    return t_threadLocks.held.load(std::memory_order_relaxed);
}

bool MayStandStillHere(const StartedThread& self) noexcept
{
    const std::uint64_t held = HeldLocks();
    return held == 0 || (held < kLibraryLockWeight && self.m_refusals.load() >= kPatience);
}

void StandStillOrLater(StartedThread& self) noexcept
{
    const bool mayStand = MayStandStillHere(self);
    t_threadLocks.mustStop.store(!mayStand, std::memory_order_relaxed);
    if (mayStand)
        StandStill(self);
}

/// Ends the calling thread if it may be ended here. Without a context the thread is in its own code.
void EndHere(StartedThread& self, const ucontext_t* context) noexcept
{
    const KillForce force = self.m_killForce.load();
    const std::uint64_t held = HeldLocks();
    const bool hasHelpers = !SharedWork::EndAll();
    if (held >= kLibraryLockWeight || (held != 0 && force == KillForce::WithoutLocks))
        return;
    // Helpers may use the stack, which stays after the raw exit.
    const bool jumps =
        !hasHelpers && (context == nullptr || !IsRuntimeCode(InterruptedAt(*context)) || IsInWaitingCall(*context));
    if (!jumps && force != KillForce::RawExit)
        return;
    SharedWork::AbandonAll();
    NoteKilled(self);
    if (jumps)
    {
        ReportKilledStack(self);
        siglongjmp(self.m_end, 1);
    }
    self.m_hasLeftRawly.store(true);
    syscall(SYS_exit, 0);
}

// The request may have changed while the thread was stopped.
void Obey(StartedThread& self, const ucontext_t* context) noexcept
{
    if (self.IsAskedToStop() && !self.IsAskedToDie())
    {
        if (HeldLocks() < kLibraryLockWeight)
            ++self.m_refusals;
        StandStillOrLater(self);
    }
    if (self.IsAskedToDie())
        EndHere(self, context);
}

// Another library may send the same signal, and one may arrive that was sent to an earlier thread of this identifier.
void OnStopSignal(int, siginfo_t* info, void* context)
{
    const int error = errno;
    StartedThread* const self = t_stoppable;
    if (self != nullptr && info->si_code == SI_QUEUE && info->si_value.sival_ptr == self)
        Obey(*self, static_cast<const ucontext_t*>(context));
    errno = error;
}

/// False when the signal could not be sent.
bool Signal(StartedThread& thread) noexcept
{
    if (g_stopSignal == 0)
        return false;
    siginfo_t info = {};
    info.si_signo = g_stopSignal;
    info.si_code = SI_QUEUE;
    info.si_pid = getpid();
    info.si_uid = getuid();
    info.si_value.sival_ptr = &thread;
    const int error = errno;
    const bool sent = syscall(SYS_rt_tgsigqueueinfo, getpid(), thread.m_id.load(), g_stopSignal, &info) == 0;
    errno = error;
    return sent;
}

/// Sends the signal until the word holds 1 or the time is over. True when the word holds 1.
bool SignalUntil(StartedThread& thread, const std::atomic<std::uint32_t>& word, std::chrono::milliseconds time) noexcept
{
    const Clock::time_point end = Clock::now() + time;
    while (word.load(std::memory_order_acquire) == 0 && !thread.HasEnded() && !thread.m_hasLeftRawly.load())
    {
        if (Clock::now() >= end)
            return false;
        Signal(thread);
        WaitWhile(word, 0, kRetryTime);
    }
    return word.load(std::memory_order_acquire) != 0;
}

/// The thread stops as soon as it holds no lock of the library, without being signalled again.
void SignalForLater(StartedThread& thread) noexcept
{
    thread.m_refusals.store(kPatience);
    Signal(thread);
}
} // namespace

void StopAfterRelease() noexcept
{
    StartedThread* const self = t_stoppable;
    const int error = errno;
    t_threadLocks.mustStop.store(false, std::memory_order_relaxed); // first: the next signal may set it again
    std::atomic_signal_fence(std::memory_order_seq_cst);
    if (self != nullptr && self->IsAskedToStop() && !self->IsAskedToDie())
        StandStillOrLater(*self);
    errno = error;
}

void PrepareStops() noexcept
{
    static std::once_flag once;
    std::call_once(once, [] {
        dl_iterate_phdr(&NoteRuntimeCode, nullptr);
        for (int number = SIGRTMIN + kFirstSignalToTry; number < SIGRTMAX && g_stopSignal == 0; ++number)
        {
            struct sigaction standing = {};
            struct sigaction ours = {};
            ours.sa_sigaction = &OnStopSignal;
            ours.sa_flags = SA_SIGINFO | SA_RESTART | SA_ONSTACK;
            sigemptyset(&ours.sa_mask);
            if (sigaction(number, nullptr, &standing) == 0 && (standing.sa_flags & SA_SIGINFO) == 0 &&
                standing.sa_handler == SIG_DFL && sigaction(number, &ours, nullptr) == 0)
                g_stopSignal = number;
        }
    });
}

void AcceptStopsOnThisThread() noexcept
{
    sigset_t stop;
    sigemptyset(&stop);
    if (g_stopSignal != 0 && sigaddset(&stop, g_stopSignal) == 0)
        pthread_sigmask(SIG_UNBLOCK, &stop, nullptr);
}

void SetStoppableThread(StartedThread* thread) noexcept
{
    t_stoppable = thread;
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

// A caller that suspends it again before m_standing is cleared sees it as stopped, which is true: the loop goes round
// without having returned.
void StandStill(StartedThread& self) noexcept
{
    while (self.IsAskedToStop() && !self.IsAskedToDie())
    {
        self.m_standing.store(1);
        WakeAll(self.m_standing);
        std::uint32_t request = self.m_request.load();
        while (request != 0 && (request & StartedThread::kDie) == 0)
        {
            WaitWhile(self.m_request, request);
            request = self.m_request.load();
        }
        self.m_standing.store(0);
    }
}

void NoteKilled(StartedThread& self) noexcept
{
    SetStoppableThread(nullptr);
    self.m_exitCode.store(self.m_killedExitCode.load());
    self.m_wasKilled.store(true);
}

bool SuspendThread(StartedThread* thread) noexcept
{
    if (thread->HasEnded())
        return false;
    thread->m_refusals.store(0);
    thread->m_request.fetch_add(1);
    if (thread == t_stoppable)
    {
        StandStill(*thread);
        if (thread->IsAskedToDie())
            EndHere(*thread, nullptr);
        return true;
    }
    if (SignalUntil(*thread, thread->m_standing, kSuspendTime))
        return true;
    SignalForLater(*thread);
    return false;
}

bool ResumeThread(StartedThread* thread) noexcept
{
    if (thread->HasEnded())
        return false;
    std::uint32_t request = thread->m_request.load();
    while ((request & ~StartedThread::kDie) != 0 && !thread->m_request.compare_exchange_weak(request, request - 1))
    {
    }
    WakeAll(thread->m_request);
    return true;
}

void ContinueThread(StartedThread* thread) noexcept
{
    if (thread->m_killForce.load() != KillForce::None)
        return;
    thread->m_request.fetch_and(StartedThread::kDie);
    WakeAll(thread->m_request);
}

void LeaveStart(StartedThread* thread) noexcept
{
    if (!thread->m_hasLeftStart.load())
        ContinueThread(thread);
}

bool KillThread(StartedThread* thread, unsigned exitCode) noexcept
{
    if (thread == t_stoppable || thread->HasEnded())
        return false;
    static constexpr struct
    {
        KillForce force;
        std::chrono::milliseconds time;
    } kSteps[] = {{KillForce::WithoutLocks, kKillWithoutLocksTime},
                  {KillForce::WithLocks, kKillGentlyTime - kKillWithoutLocksTime},
                  {KillForce::RawExit, kKillTime - kKillGentlyTime}};

    thread->m_killedExitCode.store(exitCode);
    for (const auto& step : kSteps)
    {
        thread->m_killForce.store(step.force);
        thread->m_request.fetch_or(StartedThread::kDie);
        WakeAll(thread->m_request);
        if (SignalUntil(*thread, thread->m_ended, step.time))
            return thread->m_wasKilled.load();
        if (thread->m_hasLeftRawly.load())
        {
            Leave(*thread);
            return true;
        }
    }
    thread->m_request.fetch_add(1);
    thread->m_request.fetch_and(~StartedThread::kDie);
    SignalForLater(*thread);
    return false;
}
} // namespace tev::platform
