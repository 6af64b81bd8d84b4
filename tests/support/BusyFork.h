#pragma once

#include "tests/support/ForkedChild.h"
#include "tests/support/Sanitized.h"

namespace tev::test
{
constexpr int kBusyForks = kIsSanitized ? 10 : 150; // without other threads a fork is like the next
constexpr const char* kNoBusyFork =
    "sanitizers' allocators may be locked for ever in a child of a process with threads";

/// Forks many times while other threads do the work. Returns the first result of a child that did not return true within
/// half a minute, or 0.
template <class Work, class InChild>
int ForkWhileBusy(Work work, InChild inChild, int forks = kBusyForks)
{
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
    int result = 0;
    for (int i = 0; i < forks && result == 0; ++i)
        result = ResultInChild([&inChild] { return inChild() ? 0 : 1; });
    done = true;
    for (std::thread& thread : threads)
        thread.join();
    return result;
}
} // namespace tev::test
