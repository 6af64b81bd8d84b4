#include "threads/WorkerCount.h"

#include "platform/WorkerLimit.h"

#include <algorithm>
#include <atomic>

namespace
{
constexpr unsigned kChunksPerWorker = 24;

std::atomic<unsigned> g_workerCount{0}; ///< 0: not set yet
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
