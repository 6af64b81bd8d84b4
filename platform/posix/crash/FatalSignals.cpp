#include "platform/FatalSignals.h"

#include "platform/SealedData.h"
#include "platform/ThreadLocks.h"
#include "platform/posix/crash/ProcessThreads.h"
#include "platform/posix/threads/AlternateStack.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <iterator>
#include <new>
#include <optional>

#include <csignal>
#include <dlfcn.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <ucontext.h>
#include <unistd.h>

namespace tev::platform
{
namespace
{
constexpr int kMostNumbers = 6;

struct SignalsOfKind
{
    FatalSignal kind;
    int numbers[kMostNumbers]; // terminated by 0
};

// Not hooked: SIGQUIT, by which the user asks for a core file, and signals that report no error of the program.
constexpr SignalsOfKind kSignals[] = {
    {FatalSignal::Abort, {SIGABRT}},
    {FatalSignal::Interrupt, {SIGINT}},
    {FatalSignal::Terminate, {SIGTERM}},
    {FatalSignal::FloatingPoint, {SIGFPE}},
    {FatalSignal::IllegalInstruction, {SIGILL}},
    {FatalSignal::SegmentViolation, {SIGSEGV}},
    {FatalSignal::Other, {SIGBUS, SIGSYS, SIGTRAP, SIGXCPU, SIGXFSZ}},
};
constexpr std::size_t kKinds = std::size(kSignals);

struct SignalState
{
    std::atomic<SignalHook> hooks[kKinds];
    std::atomic<bool> mayWriteErrors;
};
SealedData<SignalState> g_signalState;

const SignalsOfKind* FindSignal(int number) noexcept
{
    for (const SignalsOfKind& row : kSignals)
    {
        for (const int candidate : row.numbers)
        {
            if (candidate == number)
                return &row;
        }
    }
    return nullptr;
}

void OnSignal(int number, siginfo_t* info, void* context)
{
    const int error = errno;
    const SignalsOfKind* const row = FindSignal(number);
    const SignalHook hook = row == nullptr ? nullptr : g_signalState->hooks[row - kSignals].load();
    if (hook != nullptr)
        hook({row->kind, number, info->si_code, info, context});
    else
        EndBySignal(number); // the hook is a forked relative's
    errno = error;
}

bool IsOurs(const struct sigaction& action) noexcept
{
    return (action.sa_flags & SA_SIGINFO) != 0 && action.sa_sigaction == OnSignal;
}

/// Sanitizers report faults themselves.
bool IsSanitized() noexcept
{
    static const bool isSanitized = dlsym(RTLD_DEFAULT, "__sanitizer_set_death_callback") != nullptr;
    return isSanitized;
}

thread_local std::optional<AlternateStack> t_alternateStack;

std::atomic<RunTimeHook> g_pureCallHook{nullptr};
} // namespace

struct PreviousSignals
{
    FatalSignal kind;
    struct sigaction actions[kMostNumbers];
};

PreviousSignalsPtr HookSignals(FatalSignal kind, SignalHook hook)
{
    const bool isFault = kind != FatalSignal::Interrupt && kind != FatalSignal::Terminate;
    if (isFault && IsSanitized())
        return nullptr;
    const auto index = static_cast<std::size_t>(kind);
    auto previous = std::make_shared<PreviousSignals>();
    previous->kind = kind;
    g_signalState.Change([&](SignalState& state) { state.hooks[index].store(hook); });
    struct sigaction action = {};
    action.sa_sigaction = OnSignal;
    // A fault inside the handler enters it again instead of ending the process without the documented exit code.
    action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
    sigemptyset(&action.sa_mask);
    sigaddset(&action.sa_mask, SIGINT);
    sigaddset(&action.sa_mask, SIGTERM);
    for (int i = 0; kSignals[index].numbers[i] != 0; ++i)
        sigaction(kSignals[index].numbers[i], &action, &previous->actions[i]);
    return previous;
}

void UnhookSignals(const PreviousSignalsPtr& previous) noexcept
{
    if (previous == nullptr)
        return;
    const auto index = static_cast<std::size_t>(previous->kind);
    for (int i = 0; kSignals[index].numbers[i] != 0; ++i)
    {
        struct sigaction standing = {};
        if (sigaction(kSignals[index].numbers[i], nullptr, &standing) == 0 && IsOurs(standing))
            sigaction(kSignals[index].numbers[i], &previous->actions[i], nullptr);
    }
    g_signalState.Change([&](SignalState& state) { state.hooks[index].store(nullptr); });
}

bool CallPrevious(const PreviousSignals& previous, const SignalEvent& event) noexcept
{
    const SignalsOfKind& row = kSignals[static_cast<std::size_t>(previous.kind)];
    for (int i = 0; row.numbers[i] != 0; ++i)
    {
        if (row.numbers[i] != event.number)
            continue;
        const struct sigaction& action = previous.actions[i];
        if (IsOurs(action)) // installed by the process that this one was forked from
            return false;
        if ((action.sa_flags & SA_SIGINFO) != 0)
            action.sa_sigaction(event.number, static_cast<siginfo_t*>(const_cast<void*>(event.info)),
                                const_cast<void*>(event.context));
        else if (action.sa_handler == SIG_IGN || action.sa_handler == SIG_DFL)
            return false;
        else
            action.sa_handler(event.number);
        return true;
    }
    return false;
}

namespace
{
struct SignalRecords
{
    ucontext_t context;
    siginfo_t info;
};
} // namespace

std::size_t SignalRecordsSize() noexcept
{
    return sizeof(SignalRecords);
}

void MakeSignalRecords(void* memory, unsigned code, const void*& info, const void*& context) noexcept
{
    auto* const records = new (memory) SignalRecords();
    records->info.si_signo = static_cast<int>(code);
    getcontext(&records->context);
    info = &records->info;
    context = &records->context;
}

void EndBySignal(int number) noexcept
{
    struct sigaction standard = {};
    standard.sa_handler = SIG_DFL;
    sigaction(number, &standard, nullptr);
    sigset_t mask;
    sigemptyset(&mask);
    sigaddset(&mask, number);
    pthread_sigmask(SIG_UNBLOCK, &mask, nullptr);
    syscall(SYS_tgkill, getpid(), OwnThreadId(), number);
    EndAtOnce(128 + number);
}

void EndAtOnce(int exitCode) noexcept
{
    for (;;)
        _exit(exitCode);
}

std::uint32_t ProcessId() noexcept
{
    return static_cast<std::uint32_t>(getpid());
}

void BecomeCrashReporter() noexcept
{
    pthread_setname_np(pthread_self(), "crash reporter");
    sigset_t mask;
    sigemptyset(&mask);
    for (int number = 1; number < SIGRTMIN; ++number)
    {
        const SignalsOfKind* const row = FindSignal(number);
        if (row == nullptr || row->kind == FatalSignal::Interrupt || row->kind == FatalSignal::Terminate)
            sigaddset(&mask, number);
    }
    pthread_sigmask(SIG_BLOCK, &mask, nullptr);
}

void TakeAlternateStack()
{
    if (!t_alternateStack)
        t_alternateStack.emplace();
}

void GiveAlternateStackBack() noexcept
{
    t_alternateStack.reset();
}

void LetWriteErrors(bool isOn) noexcept
{
    g_signalState.Change([&](SignalState& state) { state.mayWriteErrors.store(isOn); });
}

void WriteErrorLine(const char* start, const char* rest) noexcept
{
    constexpr int kPatienceMs = 1000;
    pollfd output = {STDERR_FILENO, POLLOUT, 0};
    if (!g_signalState->mayWriteErrors.load() || poll(&output, 1, kPatienceMs) != 1 || (output.revents & POLLOUT) == 0)
        return;
    // A reader that has gone must not end the process by a signal.
    sigset_t brokenPipe, before, pending;
    sigemptyset(&brokenPipe);
    sigaddset(&brokenPipe, SIGPIPE);
    sigpending(&pending);
    pthread_sigmask(SIG_BLOCK, &brokenPipe, &before);
    char newLine = '\n';
    const iovec parts[] = {
        {const_cast<char*>(start), std::strlen(start)}, {const_cast<char*>(rest), std::strlen(rest)}, {&newLine, 1}};
    constexpr timespec kNow = {0, 0};
    if (writev(STDERR_FILENO, parts, static_cast<int>(std::size(parts))) < 0 && errno == EPIPE &&
        sigismember(&pending, SIGPIPE) == 0)
        sigtimedwait(&brokenPipe, nullptr, &kNow);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

RunTimeHook SetPureCallHook(RunTimeHook hook) noexcept
{
    return g_pureCallHook.exchange(hook);
}

// Removed from the language, but not from the run-time: code compiled for earlier versions still uses it.
RunTimeHook SetRunTimeUnexpected(RunTimeHook hook) noexcept __asm__("_ZSt14set_unexpectedPFvvE") __attribute__((weak));

RunTimeHook SetUnexpectedHook(RunTimeHook hook) noexcept
{
    return SetRunTimeUnexpected == nullptr ? nullptr : SetRunTimeUnexpected(hook);
}
} // namespace tev::platform

// Overrides the run-time's function in programs that load this library before the run-time.
extern "C" __attribute__((visibility("default"), noreturn)) void __cxa_pure_virtual()
{
    if (const tev::platform::RunTimeHook hook = tev::platform::g_pureCallHook.load())
        hook();
    tev::platform::WriteErrorLine("pure virtual method called", "");
    std::terminate();
}
