#include "threads/WorkerCount.h"

#include "objects/CXException.h"
#include "objects/ThreadException.h"
#include "services/StartUp.h"
#include "threads/CXThread.h"
#include "threads/ThreadRelations.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <stdexcept>
#include <vector>

extern "C" void omp_set_num_threads(int count);

namespace
{
/// Makes the run-time's maximum four, as OMP_NUM_THREADS does, whatever the machine has.
class WorkerCountThreads : public testing::Test
{
protected:
    WorkerCountThreads()
    {
        omp_set_num_threads(4);
        InitFerngateApplication();
    }
};

TEST_F(WorkerCountThreads, CountAndChunkSizeAreLimited)
{
    EXPECT_EQ(OMPGetMaxThreadCount(), 4u);
    const std::pair<unsigned, unsigned> counts[] = {{0, 1}, {3, 3}, {5, 4}, {0xFFFFFFFF, 4}, {4, 4}};
    for (const auto& [set, got] : counts)
    {
        OMPSetMaxThreadCount(set);
        EXPECT_EQ(OMPGetMaxThreadCount(), got) << set;
    }
    const std::pair<unsigned, unsigned> chunks[] = {{0, 1}, {10, 1}, {191, 1}, {192, 2}, {1000, 10}, {~0u, 44739242}};
    for (const auto& [items, chunk] : chunks)
        EXPECT_EQ(OMPGetScheduleChunkSize(items), chunk) << items;
}

TEST_F(WorkerCountThreads, LoopsDoEachItemOnce)
{
    for (const unsigned workers : {1, 4})
    {
        OMPSetMaxThreadCount(workers);
        for (const unsigned items : {0u, 1u, 3u, 1000u, 10007u})
        {
            std::vector<int> done(items);
            EXPECT_TRUE(XParallelFor(items, [&done](unsigned i) { ++done[i]; }));
            EXPECT_EQ(std::count(done.begin(), done.end(), 1), static_cast<long>(items));
        }
    }
    std::atomic<unsigned> inner{0};
    EXPECT_TRUE(XParallelFor(50, [&inner](unsigned) { return XParallelFor(20, [&inner](unsigned) { ++inner; }); }));
    EXPECT_EQ(inner, 1000u);
}

TEST_F(WorkerCountThreads, LoopsStop)
{
    constexpr unsigned kMany = 100000000;
    const unsigned __int64 caller = CXThread::GetCurrentThreadID();
    for (const unsigned workers : {1, 4})
    {
        OMPSetMaxThreadCount(workers);
        XDeleteThreadException();
        std::atomic<unsigned> begun{0};
        EXPECT_FALSE(XParallelFor(kMany, [&begun](unsigned) { return ++begun < 100; }));
        EXPECT_LT(begun, kMany);

        EXPECT_THROW(XParallelFor(kMany, [](unsigned i) { i < 10 ? throw std::range_error("") : void(); }),
                     std::range_error);
        try
        {
            XParallelFor(kMany, [](unsigned) { CXUserException::Throw(); });
            ADD_FAILURE() << "nothing was thrown";
        }
        catch (CXUserException* exception)
        {
            EXPECT_EQ(XTakeThreadException(), exception) << "pending here, where it is caught";
            exception->Delete();
        }

        EXPECT_FALSE(XParallelFor(kMany, [caller](unsigned i) {
            if (i == 0)
                SetCancelThread(true, caller);
        }));
        SetCancelThread(false, caller);
    }
}
} // namespace
