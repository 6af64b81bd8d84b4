#include "platform/ForkHandlers.h"

#include <array>
#include <atomic>

#include <pthread.h>

namespace tev::platform
{
namespace
{
constexpr std::size_t kRanks = static_cast<std::size_t>(ForkRank::Count);

// The handler of each rank that was registered last. Lists only grow at their front.
std::array<std::atomic<const ForkHandler*>, kRanks> g_handlers{};

// Those that were called before the fork. A library that is loaded meanwhile on another thread adds handlers which were not
// called, and whose locks this thread does not hold.
thread_local std::array<const ForkHandler*, kRanks> t_called{};
} // namespace

struct ForkCalls
{
    static void BeforeFork()
    {
        for (std::size_t rank = 0; rank < kRanks; ++rank)
        {
            t_called[rank] = g_handlers[rank].load(std::memory_order_acquire);
            CallAll(t_called[rank], &ForkHandler::m_beforeFork);
        }
    }
    static void InParent() { AfterFork(&ForkHandler::m_inParent); }
    static void InChild() { AfterFork(&ForkHandler::m_inChild); }

private:
    static void AfterFork(const ForkHandler::Function ForkHandler::*function)
    {
        for (std::size_t rank = kRanks; rank > 0; --rank)
            CallAll(t_called[rank - 1], function);
    }

    static void CallAll(const ForkHandler* first, const ForkHandler::Function ForkHandler::*function)
    {
        for (const ForkHandler* handler = first; handler != nullptr; handler = handler->m_next)
        {
            if (handler->*function != nullptr)
                (handler->*function)();
        }
    }
};

ForkHandler::ForkHandler(ForkRank rank, Function beforeFork, Function inParent, Function inChild) noexcept
    : m_beforeFork(beforeFork), m_inParent(inParent), m_inChild(inChild)
{
    static const int registered = pthread_atfork(&ForkCalls::BeforeFork, &ForkCalls::InParent, &ForkCalls::InChild);
    static_cast<void>(registered);
    auto& first = g_handlers[static_cast<std::size_t>(rank)];
    m_next = first.load(std::memory_order_relaxed);
    while (!first.compare_exchange_weak(m_next, this, std::memory_order_release, std::memory_order_relaxed))
    {
    }
}
} // namespace tev::platform
