#include "threads/ParallelFor.h"

#include "objects/CXCriticalSection.h"
#include "objects/CXException.h"
#include "objects/FailureNote.h"
#include "objects/ThreadException.h"
#include "objects/ThreadStatus.h"
#include "platform/Cancellation.h"
#include "platform/ForcedUnwind.h"
#include "platform/SharedWork.h"
#include "threads/WorkPool.h"
#include "threads/WorkerCount.h"

#include <algorithm>
#include <exception>

namespace
{
constexpr std::size_t kCacheLine = 64;

/// One parallel loop while it runs.
class Loop : public tev::LoopControl
{
public:
    Loop(unsigned itemCount, tev::LoopChunk chunk, void* context)
        : m_chunk(chunk), m_context(context), m_itemCount(itemCount), m_chunkSize(OMPGetScheduleChunkSize(itemCount))
    {
    }
    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;

    /// On each worker.
    void Work()
    {
        while (!IsStopped())
        {
            const unsigned __int64 begin = m_next.fetch_add(m_chunkSize, std::memory_order_relaxed);
            if (begin >= m_itemCount)
                return;
            if (!DoChunk(static_cast<unsigned>(begin)))
                Stop();
        }
    }

    /// On the calling thread, when no worker is left.
    bool Finish(bool isComplete)
    {
        if (m_exception)
        {
            if (m_recorded != nullptr)
                XSetThreadException(m_recorded);
            std::rethrow_exception(m_exception);
        }
        return (isComplete && !IsStopped()) || tev::NoteFailure({"XParallelFor", XFailureKind::kCancelled});
    }

private:
    bool DoChunk(unsigned begin)
    {
        const auto end = static_cast<unsigned>(std::min<unsigned __int64>(begin + m_chunkSize, m_itemCount));
        try
        {
            return m_chunk(m_context, begin, end, *this);
        }
        catch (const tev::platform::ForcedUnwind&)
        {
            Stop();
            throw;
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

    // The exception is passed to another thread, so this one must not have it recorded.
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
    alignas(kCacheLine) std::atomic<unsigned __int64> m_next{0}; ///< apart from what workers only read
    alignas(kCacheLine) tev::LibraryLock m_lock;
    std::exception_ptr m_exception;
    CXException* m_recorded = nullptr;
};
} // namespace

// The first item is preceded by a check.
tev::LoopControl::LoopControl() noexcept
    : m_endingChanges(platform::g_endingChanges), m_checkedChanges(platform::g_endingChanges.load() - 1)
{
}

bool tev::LoopControl::CheckWhetherToEnd() noexcept
{
    const std::uint32_t changes = m_endingChanges.load();
    if (IsThreadAskedToEnd())
    {
        Stop();
        return false;
    }
    m_checkedChanges.store(changes, std::memory_order_relaxed);
    return true;
}

bool tev::RunParallelChunks(unsigned itemCount, LoopChunk chunk, void* context)
{
    platform::PassCancellationPoint();
    const LongOperation operation("in a parallel loop");
    Loop loop(itemCount, chunk, context);
    const auto work = [](void* running) { static_cast<Loop*>(running)->Work(); };
    const bool isComplete = RunTogether(std::min(OMPGetMaxThreadCount(), itemCount), work, &loop);
    return loop.Finish(isComplete);
}
