#include "tests/crash/program/Surroundings.h"

#include "TevTools.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <thread>

#include <pthread.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace ways
{
namespace
{
volatile int g_ignored = 0; // what calls return whose results the compiler wants used

} // namespace

void BlockSignals()
{
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
}

void Limit(int resource, rlim_t limit)
{
    const rlimit limits = {limit, RLIM_INFINITY};
    setrlimit(static_cast<__rlimit_resource>(resource), &limits);
}

void BecomeNobody()
{
    constexpr uid_t kNobody = 65534;
    if (geteuid() != 0)
        return;
    for (const char* const folder : {".", "user", "common", "temporary"})
        g_ignored = chown(folder, kNobody, kNobody);
    g_ignored = setgid(kNobody) + setuid(kNobody);
}

void RunBeside(void (*work)())
{
    std::atomic<bool> isReady{false};
    std::thread([&] {
        work();
        isReady = true;
        for (;;)
            pause();
    }).detach();
    while (!isReady)
        std::this_thread::yield();
}

void DemandBesideUnstoppable()
{
    std::thread unstoppable([] {
        if (vfork() == 0)
        {
            const timespec forLong = {2, 500000000};
            syscall(SYS_nanosleep, &forLong, nullptr);
            _exit(0);
        }
    });
    const timespec untilItWaits = {0, 100000000};
    nanosleep(&untilItWaits, nullptr);
    CrashGenerateErrorReport(nullptr, false);
    unstoppable.join();
}

void WaitOnAdjacentStacks()
{
    constexpr std::size_t kStack = std::size_t{128} << 10;
    constexpr int kThreads = 4;
    static std::atomic<int> ready{0};
    void* const block = mmap(nullptr, kStack * kThreads, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    for (int i = 0; i < kThreads; ++i)
    {
        pthread_attr_t attributes;
        pthread_attr_init(&attributes);
        pthread_attr_setstack(&attributes, static_cast<char*>(block) + i * 3 % kThreads * kStack, kStack);
        pthread_t thread;
        const auto wait = [](void*) -> void* {
            for (++ready;;)
                pause();
        };
        pthread_create(&thread, &attributes, wait, nullptr);
    }
    while (ready != kThreads)
        std::this_thread::yield();
}

// The helper is the process by that name whose first argument is the number of this one.
void RunForHelper(const std::string& program)
{
    const std::string command =
        "for p in /proc/[0-9]*; do [ \"$(tr '\\0' ' ' <$p/cmdline 2>/dev/null | cut -d' ' -f2)\" = " +
        std::to_string(getpid()) + " ] && grep -q tev-crash-helper $p/cmdline && " + program + " ${p#/proc/}; done";
    g_ignored = std::system(command.c_str());
}

void SignalHelper(int number)
{
    RunForHelper("kill -" + std::to_string(number));
}

void InChild(void (*work)())
{
    const pid_t child = fork();
    if (child == 0)
    {
        work();
        _exit(99);
    }
    int status = 0;
    waitpid(child, &status, 0);
    std::_Exit(WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status));
}
} // namespace ways
