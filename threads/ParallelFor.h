#pragma once

#include "base/TevTypes.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <type_traits>

// The parallel loop of the library. Safe from several threads at once.

namespace tev
{
/// A running loop, as its workers see it between two items.
class TEVTOOLS_API LoopControl
{
public:
    LoopControl(const LoopControl&) = delete;
    LoopControl& operator=(const LoopControl&) = delete;

    /// False when no further item is to begin.
    bool MayContinue() noexcept
    {
        return !m_isStopped.load(std::memory_order_relaxed) &&
               (m_endingChanges.load(std::memory_order_acquire) == m_checkedChanges.load(std::memory_order_relaxed) ||
                CheckWhetherToEnd());
    }

protected:
    LoopControl() noexcept;
    ~LoopControl() = default;
    void Stop() noexcept { m_isStopped.store(true, std::memory_order_relaxed); }
    bool IsStopped() const noexcept { return m_isStopped.load(std::memory_order_relaxed); }

private:
    bool CheckWhetherToEnd() noexcept;

    const std::atomic<std::uint32_t>& m_endingChanges;
    std::atomic<std::uint32_t> m_checkedChanges; ///< as of the last check that found nothing
    std::atomic<bool> m_isStopped{false};
};

/// A part of a loop: the items from `begin` to before `end`. Returns false when the loop is to stop.
using LoopChunk = bool (*)(void* context, unsigned begin, unsigned end, LoopControl& control);

/// The parallel loop over [0, itemCount), by chunks. True when every item was done. An exception of a chunk stops the
/// loop and is thrown here, the first one of several.
TEVTOOLS_API bool RunParallelChunks(unsigned itemCount, LoopChunk chunk, void* context);
} // namespace tev

/// Calls `body(i)` for each i in [0, itemCount) on up to as many threads as OMPGetMaxThreadCount says, the calling one among
/// them, and returns when all is done. True when every item was done. It never fails for want of threads or memory: the
/// calling thread does alone what no other can. All loops of the process share the other threads.
///
/// The loop ends early, with false, when a body that returns bool returns false, and when the calling thread is asked to
/// end: cancelled (SetCancelThread, CXThread::SetCancel), stopped (CCustomThread::StopThread), or by the shutdown of all
/// workers. An exception that leaves a body ends the loop and is thrown to the caller, where a CXException is the thread's
/// pending one; of several the first counts. No item begins after that; those that are running are finished first.
/// Inside a body, a further loop runs on the thread that it is called on. XLastFailure() knows of an early end.
template <class BODY>
bool XParallelFor(unsigned itemCount, BODY&& body)
{
    const auto chunk = [](void* context, unsigned begin, unsigned end, tev::LoopControl& control) {
        auto& call = *static_cast<std::remove_reference_t<BODY>*>(context);
        for (unsigned i = begin; i < end; ++i)
        {
            if (!control.MayContinue())
                return false;
            if constexpr (std::is_same_v<decltype(call(i)), bool>)
            {
                if (!call(i))
                    return false;
            }
            else
            {
                call(i);
            }
        }
        return true;
    };
    return tev::RunParallelChunks(itemCount, chunk, const_cast<void*>(static_cast<const void*>(std::addressof(body))));
}
