#include "tests/trials/FaultInjector.h"

#include "tests/trials/FailingMalloc.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <stdexcept>

#include <csignal>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tev::trials
{
namespace
{
constexpr long kMark = 100000; // no system call; made where the part that meets faults begins and ends
constexpr unsigned kPatienceSeconds = 60;
constexpr unsigned kInterruptible = 1;
constexpr unsigned kTransfer = 2; ///< its third argument is how many bytes
constexpr unsigned kMakesDescriptor = 4;
constexpr unsigned kTakesSpace = 8;
constexpr unsigned kReachesDisk = 16;
constexpr unsigned kTakesMemory = 32;
constexpr unsigned kIsDurability = 64; ///< decides what is left after a power failure

struct Call
{
    long number;
    const char* name;
    unsigned can;
};

constexpr unsigned kOpens = kInterruptible | kMakesDescriptor | kTakesSpace | kReachesDisk | kTakesMemory;
constexpr unsigned kWrites = kInterruptible | kTransfer | kTakesSpace | kReachesDisk;
constexpr unsigned kReads = kInterruptible | kTransfer | kReachesDisk;
constexpr unsigned kNames = kTakesSpace | kReachesDisk | kTakesMemory;
constexpr unsigned kLooks = kReachesDisk | kTakesMemory;
constexpr Call kCalls[] = {
    {SYS_open, "open", kOpens},
    {SYS_openat, "openat", kOpens},
    {SYS_openat2, "openat2", kOpens},
    {SYS_read, "read", kReads},
    {SYS_pread64, "pread64", kReads},
    {SYS_write, "write", kWrites},
    {SYS_pwrite64, "pwrite64", kWrites},
    {SYS_fsync, "fsync", kInterruptible | kTakesSpace | kReachesDisk | kIsDurability},
    {SYS_fdatasync, "fdatasync", kInterruptible | kTakesSpace | kReachesDisk},
    {SYS_ftruncate, "ftruncate", kInterruptible | kTakesSpace | kReachesDisk},
    {SYS_fallocate, "fallocate", kInterruptible | kTakesSpace | kReachesDisk},
    {SYS_close, "close", kInterruptible | kTakesSpace | kReachesDisk | kIsDurability},
    {SYS_flock, "flock", kInterruptible | kTakesMemory},
    {SYS_fcntl, "fcntl", kTakesMemory},
    {SYS_lseek, "lseek", kReachesDisk},
    {SYS_rename, "rename", kNames | kIsDurability},
    {SYS_renameat, "renameat", kNames},
    {SYS_renameat2, "renameat2", kNames},
    {SYS_link, "link", kNames},
    {SYS_linkat, "linkat", kNames},
    {SYS_unlink, "unlink", kLooks},
    {SYS_unlinkat, "unlinkat", kLooks},
    {SYS_mkdir, "mkdir", kNames},
    {SYS_mkdirat, "mkdirat", kNames},
    {SYS_fchmod, "fchmod", kReachesDisk | kTakesSpace},
    {SYS_fchown, "fchown", kReachesDisk | kTakesSpace},
    {SYS_utimensat, "utimensat", kReachesDisk},
    {SYS_stat, "stat", kLooks},
    {SYS_fstat, "fstat", kLooks},
    {SYS_lstat, "lstat", kLooks},
    {SYS_newfstatat, "newfstatat", kLooks},
    {SYS_statx, "statx", kLooks},
    {SYS_access, "access", kLooks},
    {SYS_faccessat, "faccessat", kLooks},
    {SYS_faccessat2, "faccessat2", kLooks},
    {SYS_readlink, "readlink", kLooks},
    {SYS_getdents64, "getdents64", kLooks},
    {SYS_mmap, "mmap", kTakesMemory},
    {SYS_clone, "clone", kTakesMemory},
    {SYS_clone3, "clone3", kTakesMemory},
};

unsigned CapabilityFor(int error)
{
    switch (error)
    {
    case EINTR:
        return kInterruptible;
    case EMFILE:
        return kMakesDescriptor;
    case ENOSPC:
        return kTakesSpace;
    case ENOMEM:
        return kTakesMemory;
    default:
        return kReachesDisk;
    }
}

const Call* FindCall(long number)
{
    for (const Call& call : kCalls)
    {
        if (call.number == number)
            return &call;
    }
    return nullptr;
}

bool IsTraced(Fault fault)
{
    return fault == Fault::Kill || fault == Fault::Error || fault == Fault::ShortTransfer;
}

/// What a child reports, in memory that it shares with its parent.
struct Report
{
    bool hasEnded;
    bool answer;
    unsigned allocations;
    char wrong[512];
};

class SharedReport
{
public:
    SharedReport()
        : m_report(static_cast<Report*>(
              mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)))
    {
        if (m_report == MAP_FAILED)
            throw std::runtime_error("no memory to share");
        std::memset(static_cast<void*>(m_report), 0, sizeof(Report));
    }
    ~SharedReport() { munmap(m_report, sizeof(Report)); }
    SharedReport(const SharedReport&) = delete;
    SharedReport& operator=(const SharedReport&) = delete;
    Report* operator->() const { return m_report; }

private:
    Report* m_report;
};

[[noreturn]] void BeChild(const Work& work, const Plan& plan, const SharedReport& report)
{
    alarm(kPatienceSeconds); // what hangs ends by a signal
    const bool failsAllocations = !IsTraced(plan.fault);
    work.begin();
    if (IsTraced(plan.fault))
    {
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        raise(SIGSTOP);
        syscall(kMark);
    }
    else
    {
        StartFailing(plan.at, plan.fault == Fault::AllAllocations);
    }
    report->answer = work.run();
    if (failsAllocations)
        StopFailing();
    else
        syscall(kMark);
    report->allocations = CountedAllocations();
    std::strncpy(report->wrong, work.inspect().c_str(), sizeof report->wrong - 1);
    report->hasEnded = true;
    _exit(0);
}

void NoteEnd(int status, Ending& ending)
{
    ending.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    ending.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/// Watches a child, its threads and the programs that it runs, from system call to system call.
class Tracer
{
public:
    Tracer(pid_t child, const Plan& plan, Ending& ending) : m_child(child), m_plan(plan), m_ending(ending) {}

    void Follow()
    {
        int status = 0;
        waitpid(m_child, &status, 0);
        ptrace(PTRACE_SETOPTIONS, m_child, nullptr,
               PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACECLONE | PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK |
                   PTRACE_O_TRACEEXEC | PTRACE_O_EXITKILL);
        ptrace(PTRACE_SYSCALL, m_child, nullptr, nullptr);
        for (pid_t thread = 0; (thread = waitpid(-1, &status, __WALL)) > 0;)
        {
            if (!WIFSTOPPED(status))
            {
                if (thread == m_child)
                    NoteEnd(status, m_ending);
                continue;
            }
            const int signal = WSTOPSIG(status);
            if (signal == (SIGTRAP | 0x80))
                OnSystemCall(thread);
            const bool isOurs = signal == (SIGTRAP | 0x80) || signal == SIGTRAP || signal == SIGSTOP;
            ptrace(PTRACE_SYSCALL, thread, nullptr, static_cast<std::intptr_t>(isOurs ? 0 : signal));
        }
    }

private:
    void OnSystemCall(pid_t thread)
    {
        __ptrace_syscall_info info = {};
        if (ptrace(PTRACE_GET_SYSCALL_INFO, thread, sizeof info, &info) <= 0)
            return;
        if (info.op == PTRACE_SYSCALL_INFO_ENTRY)
            OnEntry(thread, static_cast<long>(info.entry.nr), info.entry.args[0], info.entry.args[2]);
        else if (info.op == PTRACE_SYSCALL_INFO_EXIT)
            OnExit(thread);
    }

    /// Of the files that are closed only the one that was flushed before counts.
    void NoteDurability(const Call& call, std::uint64_t first)
    {
        if (call.number == SYS_close && first != m_flushed)
            return;
        if (call.number == SYS_fsync)
            m_flushed = first;
        m_ending.durability += call.name + std::string(" ");
    }

    void OnEntry(pid_t thread, long number, std::uint64_t first, std::uint64_t bytes)
    {
        if (number == kMark)
        {
            m_isInside = !m_isInside;
            return;
        }
        const Call* const call = FindCall(number);
        if (m_isInside && call != nullptr && (call->can & kIsDurability) != 0)
            NoteDurability(*call, first);
        const bool counts = m_isInside && (m_plan.fault == Fault::Kill || (call != nullptr && CanMeet(*call, bytes)));
        if (!counts || ++m_ending.count != m_plan.at)
            return;
        m_ending.isHit = true;
        m_ending.call = call != nullptr ? call->name : std::to_string(number);
        if (m_plan.fault == Fault::Kill)
        {
            kill(thread, SIGKILL); // with the other threads of its process
        }
        else if (m_plan.fault == Fault::ShortTransfer)
        {
            SetRegister(thread, offsetof(user_regs_struct, rdx), bytes / 2);
        }
        else
        {
            m_failing[thread] = m_plan.error;
            if (number != SYS_close) // which closes, and says so afterwards
                SetRegister(thread, offsetof(user_regs_struct, orig_rax), ~std::uint64_t{0});
        }
    }

    void OnExit(pid_t thread)
    {
        const auto failing = m_failing.find(thread);
        if (failing == m_failing.end())
            return;
        SetRegister(thread, offsetof(user_regs_struct, rax), static_cast<std::uint64_t>(-failing->second));
        m_failing.erase(failing);
    }

    bool CanMeet(const Call& call, std::uint64_t bytes) const
    {
        if (m_plan.fault == Fault::ShortTransfer)
            return (call.can & kTransfer) != 0 && bytes > 1;
        return (call.can & CapabilityFor(m_plan.error)) != 0;
    }

    static void SetRegister(pid_t thread, std::size_t offset, std::uint64_t value)
    {
        ptrace(PTRACE_POKEUSER, thread, offsetof(user, regs) + offset, value);
    }

    pid_t m_child;
    const Plan& m_plan;
    Ending& m_ending;
    bool m_isInside = false;
    std::uint64_t m_flushed = ~std::uint64_t{0}; ///< the descriptor
    std::map<pid_t, int> m_failing;              ///< the error of the call that each thread is in
};
} // namespace

Ending RunInChild(const Work& work, const Plan& plan)
{
    const SharedReport report;
    const pid_t child = fork();
    if (child < 0)
        throw std::runtime_error("no child process");
    if (child == 0)
        BeChild(work, plan, report);
    Ending ending;
    if (IsTraced(plan.fault))
    {
        Tracer(child, plan, ending).Follow();
    }
    else
    {
        int status = 0;
        waitpid(child, &status, 0);
        NoteEnd(status, ending);
        ending.count = report->allocations;
        ending.isHit = plan.at != 0 && (!report->hasEnded || report->allocations >= plan.at);
        ending.call = "allocation";
    }
    ending.hasEnded = report->hasEnded;
    ending.answer = report->answer;
    ending.wrong = report->wrong;
    return ending;
}

bool CanTrace()
{
    const pid_t child = fork();
    if (child == 0)
        _exit(ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0 ? 0 : 1);
    int status = 0;
    return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}
} // namespace tev::trials
