#include "threads/WorkerCount.h"

#include "objects/CXCriticalSection.h"
#include "objects/CXException.h"
#include "objects/ThreadException.h"
#include "platform/ParallelLoop.h"
#include "platform/Threads.h"
#include "threads/ThreadRelations.h"

#include <algorithm>
#include <exception>

namespace
{
constexpr unsigned kChunksPerWorker = 24;

std::atomic<unsigned> g_workerCount{0}; ///< 0: nobody has set it yet

/// One parallel loop while it runs.
class Loop
{
public:
    Loop(unsigned itemCount, tev::LoopChunk chunk, void* context)
        : m_chunk(chunk),
          m_context(context),
          m_itemCount(itemCount),
          m_chunkSize(OMPGetScheduleChunkSize(itemCount)),
          m_caller(tev::platform::CurrentThreadId())
    {
        m_comings.store(1, std::memory_order_release);
    }

    // The run-time hands its threads over in ways that a thread sanitizer does not see, so both ends are marked here.
    void Work() noexcept
    {
        static_cast<void>(m_comings.load(std::memory_order_acquire));
        WorkOn();
        m_goings.fetch_add(1, std::memory_order_release);
    }

    /// On the calling thread, once nobody works any more.
    bool Finish()
    {
        static_cast<void>(m_goings.load(std::memory_order_acquire));
        if (m_exception)
        {
            if (m_recorded != nullptr)
                XSetThreadException(m_recorded);
            std::rethrow_exception(m_exception);
        }
        return !m_stopped.load(std::memory_order_relaxed);
    }

private:
    void WorkOn() noexcept
    {
        while (!m_stopped.load(std::memory_order_relaxed))
        {
            const unsigned __int64 begin = m_next.fetch_add(m_chunkSize, std::memory_order_relaxed);
            if (begin >= m_itemCount)
                return;
            if (ShouldCancelThread(m_caller) || !DoChunk(static_cast<unsigned>(begin)))
                m_stopped.store(true, std::memory_order_relaxed);
        }
    }

    bool DoChunk(unsigned begin) noexcept
    {
        const auto end = static_cast<unsigned>(std::min<unsigned __int64>(begin + m_chunkSize, m_itemCount));
        try
        {
            return m_chunk(m_context, begin, end);
        }
        catch (CXException* exception)
        {
            Keep(std::current_exception(), exception);
        }
        catch (...)
        {
            Keep(std::current_exception(), nullptr);
        }
        return false;
    }

    // The exception goes to another thread, so this one's record of it must go.
    void Keep(std::exception_ptr exception, CXException* recorded) noexcept
    {
        CXException* const pending = XTakeThreadException();
        if (pending != recorded)
            XSetThreadException(pending); // an earlier one, which its catcher owns
        {
            const tev::LockGuard guard(m_lock);
            if (m_exception == nullptr)
            {
                m_exception = std::move(exception);
                m_recorded = recorded;
                return;
            }
        }
        CXException::Delete(recorded);
    }

    const tev::LoopChunk m_chunk;
    void* const m_context;
    const unsigned m_itemCount;
    const unsigned m_chunkSize;
    const unsigned __int64 m_caller;
    std::atomic<unsigned __int64> m_next{0};
    std::atomic<bool> m_stopped{false};
    std::atomic<unsigned> m_comings{0};
    std::atomic<unsigned> m_goings{0};
    tev::LibraryLock m_lock;
    std::exception_ptr m_exception;
    CXException* m_recorded = nullptr;
};
} // namespace

void OMPSetMaxThreadCount(unsigned int count)
{
    g_workerCount.store(std::clamp(count, 1u, tev::platform::MaxWorkerCount()));
}

unsigned int OMPGetMaxThreadCount()
{
    const unsigned count = g_workerCount.load();
    return count != 0 ? count : tev::platform::MaxWorkerCount();
}

unsigned int OMPGetScheduleChunkSize(unsigned int itemCount)
{
    return std::max(itemCount / (OMPGetMaxThreadCount() * kChunksPerWorker), 1u);
}

bool tev::RunParallelChunks(unsigned itemCount, LoopChunk chunk, void* context)
{
    Loop loop(itemCount, chunk, context);
    const unsigned workers = std::min(OMPGetMaxThreadCount(), itemCount);
    if (workers > 1)
        platform::RunOnWorkers(
            workers, [](void* running) noexcept { static_cast<Loop*>(running)->Work(); }, &loop);
    else
        loop.Work();
    return loop.Finish();
}
