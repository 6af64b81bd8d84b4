#pragma once

#include "base/TevTypes.h"

#include <memory>
#include <type_traits>

// How many threads work on one parallel loop of the library, and the loop itself. Safe from several threads at once.

extern "C"
{
    /// Sets the number of workers: at least 1, and at most what the parallel run-time gives, which honours
    /// OMP_NUM_THREADS.
    TEVTOOLS_API void OMPSetMaxThreadCount(unsigned int count);
    /// What was set last; before that what the parallel run-time gives.
    TEVTOOLS_API unsigned int OMPGetMaxThreadCount();
    /// How many items a worker takes at a time, so that each has about 24 turns; at least 1.
    TEVTOOLS_API unsigned int OMPGetScheduleChunkSize(unsigned int itemCount);
}

namespace tev
{
/// A part of a loop: the items from `begin` to before `end`. Answers false when the loop is to stop.
using LoopChunk = bool (*)(void* context, unsigned begin, unsigned end);

/// The parallel loop over [0, itemCount), by chunks. True when every item was done. An exception of a chunk stops the
/// loop and is thrown here, the first one of several.
TEVTOOLS_API bool RunParallelChunks(unsigned itemCount, LoopChunk chunk, void* context);
} // namespace tev

/// Calls `body(i)` for each i in [0, itemCount) on as many threads as OMPGetMaxThreadCount says, the calling one among
/// them, and comes back when all is done. A body that answers bool stops the loop with false. The loop also stops when the
/// calling thread is cancelled (ShouldCancelThread). True when every item was done. An exception that leaves a body stops
/// the loop and is thrown to the caller, where a CXException is the thread's pending one; of several the first counts.
/// No item is begun after the loop was stopped; those that are under way are finished. Inside a body, a further loop runs
/// on the thread that it is called on.
template <class BODY>
bool XParallelFor(unsigned itemCount, BODY&& body)
{
    const auto chunk = [](void* context, unsigned begin, unsigned end) {
        auto& call = *static_cast<std::remove_reference_t<BODY>*>(context);
        for (unsigned i = begin; i < end; ++i)
        {
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
