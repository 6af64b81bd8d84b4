#include "threads/MainThread.h"

#include <atomic>

namespace
{
std::atomic<std::uint64_t> g_mainThread{0};
}

std::uint64_t tev::MainThreadId() noexcept
{
    return g_mainThread.load(std::memory_order_relaxed);
}

void tev::SetMainThreadId(std::uint64_t id) noexcept
{
    g_mainThread.store(id, std::memory_order_relaxed);
}
