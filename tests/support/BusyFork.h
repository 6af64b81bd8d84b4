#pragma once

#include "tests/support/Sanitized.h"
#include "tests/support/System.h"
#include "tests/support/Testing.h"

namespace tev::test
{
constexpr int kBusyForks = 400;
constexpr const char* kNoBusyFork =
    "sanitizers' allocators may be locked for ever in a child of a process with threads";

/// Forks many times while other threads do the work. Returns the first status of a child that did not return true within
/// the deadline, SIGALRM for one that hung, or 0.
template <class Work, class InChild>
int ForkWhileBusy(Work work, InChild inChild, int forks = kBusyForks)
{
    constexpr unsigned kDeadlineSeconds = 20;
    std::atomic<bool> done{false};
    // The allocators of sanitizers may be locked in a child that is made while another thread allocates.
    std::vector<std::thread> threads(kIsSanitized ? 0 : 2);
    for (std::thread& thread : threads)
    {
        thread = std::thread([&] {
            while (!done)
                work();
        });
    }
    int status = 0;
    for (int i = 0; i < forks && status == 0; ++i)
    {
        const pid_t child = fork();
        if (child == 0)
        {
            alarm(kDeadlineSeconds);
            _exit(inChild() ? 0 : 1);
        }
        if (child < 0 || waitpid(child, &status, 0) != child)
            status = -1;
    }
    done = true;
    for (std::thread& thread : threads)
        thread.join();
    return status;
}
} // namespace tev::test
