#include "platform/ThreadLocks.h"

namespace
{
std::atomic<std::uint64_t> g_lastNumber{0};
}

std::uint64_t tev::platform::NumberOfThisThread() noexcept
{
    ThreadLocks& mine = t_threadLocks;
    if (mine.number == kNoThreadNumber)
        mine.number = g_lastNumber.fetch_add(1, std::memory_order_relaxed) + 1;
    return mine.number;
}
