// CXCriticalSection compared with the recursive lock of the standard library.

#include "objects/CXCriticalSection.h"

#include <benchmark/benchmark.h>

#include <condition_variable>
#include <mutex>
#include <thread>

namespace
{
struct Ours
{
    void Lock() { m_lock.Lock(); }
    void Unlock() { m_lock.Unlock(); }

    CXCriticalSection m_lock;
};

struct Standard
{
    void Lock() { m_lock.lock(); }
    void Unlock() { m_lock.unlock(); }

    std::recursive_mutex m_lock;
};

/// A thread that sleeps meanwhile: a process without one is spared the atomic operations by the C library.
class SecondThread
{
public:
    SecondThread()
        : m_thread([this] {
              std::unique_lock lock(m_lock);
              m_ended.wait(lock, [this] { return m_end; });
          })
    {
    }
    ~SecondThread()
    {
        {
            const std::lock_guard lock(m_lock);
            m_end = true;
        }
        m_ended.notify_one();
        m_thread.join();
    }
    SecondThread(const SecondThread&) = delete;
    SecondThread& operator=(const SecondThread&) = delete;

private:
    std::mutex m_lock;
    std::condition_variable m_ended;
    bool m_end = false;
    std::thread m_thread;
};

template <class LOCK>
void Uncontended(benchmark::State& state)
{
    const SecondThread second;
    LOCK lock;
    for (auto _ : state)
    {
        lock.Lock();
        benchmark::ClobberMemory();
        lock.Unlock();
    }
}

template <class LOCK>
void Nested(benchmark::State& state)
{
    const SecondThread second;
    LOCK lock;
    lock.Lock();
    for (auto _ : state)
    {
        lock.Lock();
        benchmark::ClobberMemory();
        lock.Unlock();
    }
    lock.Unlock();
}

template <class LOCK>
void Contended(benchmark::State& state)
{
    static LOCK lock;
    static unsigned count = 0;
    for (auto _ : state)
    {
        lock.Lock();
        benchmark::DoNotOptimize(++count);
        lock.Unlock();
    }
}

BENCHMARK(Uncontended<Ours>)->Name("Lock/Uncontended/ours");
BENCHMARK(Uncontended<Standard>)->Name("Lock/Uncontended/std_recursive_mutex");
BENCHMARK(Nested<Ours>)->Name("Lock/Nested/ours");
BENCHMARK(Nested<Standard>)->Name("Lock/Nested/std_recursive_mutex");
BENCHMARK(Contended<Ours>)->Name("Lock/ContendedByTwo/ours")->Threads(2)->UseRealTime();
BENCHMARK(Contended<Standard>)->Name("Lock/ContendedByTwo/std_recursive_mutex")->Threads(2)->UseRealTime();
BENCHMARK(Contended<Ours>)->Name("Lock/ContendedByFour/ours")->Threads(4)->UseRealTime();
BENCHMARK(Contended<Standard>)->Name("Lock/ContendedByFour/std_recursive_mutex")->Threads(4)->UseRealTime();
} // namespace
