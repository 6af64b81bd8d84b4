#include "threads/CCustomThread.h"

#include "services/StartUp.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/Sanitized.h"
#include "tests/threads/Workers.h"
#include "threads/ParallelFor.h"
#include "threads/ThreadRelations.h"

namespace
{
using namespace tev::test;

TEST_F(CCustomThreads, AskingReachesEveryWorker)
{
    Worker running(UntilAskedToEnd);
    Worker suspended(UntilAskedToEnd);
    Worker neverStarted;
    EXPECT_EQ(CCustomThread::GetRunningThreadCount(), 3u);
    running.Begin();
    suspended.Begin(kOwned | kSuspended);
    EXPECT_FALSE(running.MustTerminate());

    CCustomThread::AskForThreadsEnd(false);
    EXPECT_TRUE(CCustomThread::ThreadsMustTerminate());
    EXPECT_TRUE(running.WaitForEnd(kLongTimeMs));
    EXPECT_TRUE(suspended.IsSuspended());
    EXPECT_TRUE(neverStarted.MustTerminate());
    EXPECT_TRUE(ShouldCancelThread(running.GetThreadID()) && ShouldCancelThread(suspended.GetThreadID()));
    EXPECT_FALSE(ShouldCancelThread(0)) << "the mark of a worker that has no thread";
    CCustomThread::WaitEndOfThreads(true); // does not wait: they were asked before

    EXPECT_FALSE(CCustomThread::EndThreads(0));
    EXPECT_TRUE(suspended.WaitForEnd(kLongTimeMs)) << "resumed";
    EXPECT_TRUE(CCustomThread::ThreadsMustTerminate());
}

TEST_F(CCustomThreads, WaitingEndsWithTheLastWorker)
{
    EXPECT_FALSE(CCustomThread::ThreadsMustTerminate());
    for (const bool keep : {false, true})
    {
        for (int i = 0; i < 4; ++i)
            (new Worker(UntilAskedToEnd))->Begin(i % 2 == 0 ? 0 : kSuspended);
        CCustomThread::WaitEndOfThreads(keep);
        EXPECT_EQ(CCustomThread::GetRunningThreadCount(), 0u);
        EXPECT_EQ(CCustomThread::ThreadsMustTerminate(), keep);
    }
    (new Worker(UntilAskedToEnd))->Begin(0);
    EXPECT_TRUE(CCustomThread::EndThreads(kLongTimeMs));
    EXPECT_FALSE(CCustomThread::ThreadsMustTerminate());

    Worker one;
    one.StopThread();
    EXPECT_TRUE(one.MustTerminate());
    EXPECT_FALSE(CCustomThread::ThreadsMustTerminate());
}

TEST_F(CCustomThreads, WorkersAreCreatedAndEndWhileTheyAreAskedToEnd)
{
    std::atomic<bool> stop{false};
    std::thread asker([&stop] {
        while (!stop)
        {
            CCustomThread::AskForThreadsEnd(true);
            std::this_thread::yield();
        }
    });
    for (int i = 0; i < 200; ++i)
        (new Worker(UntilAskedToEnd))->Begin(i % 2 == 0 ? 0 : kSuspended);
    EXPECT_TRUE(Eventually([] { return CCustomThread::GetRunningThreadCount() == 0; }));
    stop = true;
    asker.join();
    EXPECT_TRUE(CCustomThread::EndThreads(kLongTimeMs));
}

TEST_F(CCustomThreads, ExistingOnesAreReported)
{
    static std::vector<std::string> reported;
    const auto before = CCustomThread::SetDelayReport([](const CXArray<CXWorkerState>& workers) {
        for (int i = 0; i < workers.GetSize(); ++i)
            reported.push_back(workers[i].m_operation == nullptr ? "" : workers[i].m_operation);
    });
    reported.clear();
    CXArray<CXWorkerState> workers;
    workers.Add({});
    EXPECT_EQ(CCustomThread::GetWorkers(workers), 0u);
    EXPECT_EQ(workers.GetSize(), 0);
    {
        const Worker neverStarted;
        EXPECT_EQ(CCustomThread::GetWorkers(workers), 1u);
        EXPECT_TRUE(workers[0].m_threadId == 0 && !workers[0].m_isRunning && workers[0].m_operation == nullptr);
    }
    std::atomic<bool> isInLoop{false};
    std::atomic<bool> mayEnd{false};
    Worker looping([&](Worker& self) {
        XParallelFor(1, [&](unsigned) {
            isInLoop = true;
            Eventually([&mayEnd] { return mayEnd.load(); });
        });
        isInLoop = false;
        UntilAskedToEnd(self);
    });
    looping.Begin();
    ASSERT_TRUE(Eventually([&isInLoop] { return isInLoop.load(); }));
    ASSERT_EQ(CCustomThread::GetWorkers(workers), 1u);
    EXPECT_TRUE(workers[0].m_threadId == looping.GetThreadID() && workers[0].m_isRunning);
    EXPECT_STREQ(workers[0].m_operation, "in a parallel loop");
    EXPECT_FALSE(CCustomThread::EndThreads(0));
    EXPECT_EQ(reported, std::vector<std::string>());
    EXPECT_FALSE(CCustomThread::EndThreads(1));
    EXPECT_EQ(reported, std::vector<std::string>{"in a parallel loop"});
    mayEnd = true;
    ASSERT_TRUE(looping.WaitForEnd(kLongTimeMs));
    ASSERT_EQ(CCustomThread::GetWorkers(workers), 1u);
    EXPECT_TRUE(!workers[0].m_isRunning && workers[0].m_operation == nullptr);
    EXPECT_NE(CCustomThread::SetDelayReport(before), before);
}

TEST_F(CCustomThreads, WaitingReportsWorkersThatTakeLong)
{
    static std::atomic<CCustomThread*> late;
    const auto before = CCustomThread::SetDelayReport([](const CXArray<CXWorkerState>& workers) {
        if (workers.GetSize() == 1 && workers[0].m_threadId == late.load()->GetThreadID())
            late.load()->SetCancel();
    });
    Worker* const worker = new Worker([](Worker& self) { Eventually([&self] { return self.ShouldCancel(); }); });
    late = worker;
    worker->Begin(0);
    CCustomThread::WaitEndOfThreads(false);
    EXPECT_EQ(CCustomThread::GetRunningThreadCount(), 0u) << "it ends only when it was reported";
    CCustomThread::SetDelayReport(before);
}

TEST_F(CCustomThreads, WhoeverWaitsTakesSteps)
{
    static std::atomic<unsigned> steps;
    static std::atomic<unsigned __int64> stepped;
    const auto before = CXThread::SetWaitStep([] {
        ++steps;
        stepped = CXThread::GetCurrentThreadID();
    });
    const auto untilAStep = [](Worker&) {
        const unsigned seen = steps;
        Eventually([seen] { return steps != seen; });
    };
    Worker waitedFor(untilAStep);
    EXPECT_TRUE(waitedFor.Begin().WaitForEnd(kLongTimeMs));
    EXPECT_EQ(stepped.exchange(0), CXThread::GetCurrentThreadID());
    Worker endless(Forever);
    EXPECT_FALSE(endless.Begin().WaitForEnd(30));
    CCustomThread::HardThreadsTermination(false);
    for (const bool hasTime : {false, true})
    {
        (new Worker(untilAStep))->Begin(0);
        if (hasTime)
            EXPECT_TRUE(CCustomThread::EndThreads(kLongTimeMs));
        else
            CCustomThread::WaitEndOfThreads(false);
        EXPECT_EQ(CCustomThread::GetRunningThreadCount(), 0u);
        EXPECT_EQ(stepped.exchange(0), CXThread::GetCurrentThreadID());
    }
    CXThread::SetWaitStep(before);
}

std::atomic<const CXThread*> g_ending{nullptr}; ///< one that ends while the process forks

/// What a child must be able to do. Its result says what it could not.
int UseThreadsInChild(const CXThread& ofParent)
{
    const CXThread* const ending = g_ending;
    if (ending != nullptr && !ending->WaitForEnd(0))
        return 8;
    if (CCustomThread::GetRunningThreadCount() != 0 || CCustomThread::ThreadsMustTerminate())
        return 1;
    if (!ShouldCancelThread(0) || !ShouldCancelThread(CXThread::GetCurrentThreadID()) || IsSilentThread(0))
        return 2;
    if (CXThread::GetMainThreadID() != CXThread::GetCurrentThreadID())
        return 3;
    if (!ofParent.IsTerminated() || !ofParent.WaitForEnd(0) || ofParent.ShouldCancel())
        return 4;
    SetCancelThread(false, 0);
    Worker worker([](Worker& self) { UntilAskedToEnd(self); });
    worker.Begin();
    worker.SetCancel();
    AttachThread(worker.GetThreadID(), CXThread::GetCurrentThreadID());
    if (!Eventually([&worker] { return worker.m_isInside.load(); }))
        return 5;
    CCustomThread::AskForThreadsEnd(true);
    std::atomic<unsigned> done{0};
    if (!worker.WaitForEnd(kLongTimeMs) || !XParallelFor(100, [&done](unsigned) { ++done; }) || done != 100)
        return 6;
    return CXThread::BeginThread([](void*) { return true; }, nullptr, xThreadPriorityNormal, 0, 0) == nullptr ? 7 : 0;
}

TEST_F(CCustomThreads, ForkedChildrenUseThreadsWhateverThoseOfTheParentDo)
{
    if (kIsSanitized)
        GTEST_SKIP() << "sanitizers do not follow a fork of several threads";
    InitFerngateApplication();
    std::atomic<bool> stop{false};
    std::vector<std::thread> busy;
    for (int i = 0; i < 2; ++i)
    {
        busy.emplace_back([&stop, i] {
            std::unique_ptr<Worker> last;
            for (unsigned round = 0; !stop; ++round)
            {
                auto worker = std::make_unique<Worker>([](Worker&) {});
                worker->Begin(round % 2 == 0 ? kOwned : kOwned | kSuspended);
                AttachThread(worker->GetThreadID(), 1);
                SetSilentThread(true, worker->GetThreadID());
                XParallelFor(10, [](unsigned) {});
                if (i == 0)
                    g_ending = worker.get();
                worker->ResumeThread();
                EXPECT_TRUE(worker->WaitForEnd(kLongTimeMs));
                last = std::move(worker);
            }
            g_ending = nullptr;
        });
    }
    HoldsItsLock ofParent;
    ASSERT_EQ(CXThread::BeginThread(&ofParent, xThreadPriorityNormal, kOwned, 0), &ofParent);
    ASSERT_TRUE(Eventually([&ofParent] { return ofParent.m_holdsIt.load(); }));
    SetCancelThread(true, 0);
    for (int i = 0; i < 100 && !HasFailure(); ++i)
        EXPECT_EQ(ResultInChild([&ofParent] { return UseThreadsInChild(ofParent); }), 0);
    // From a thread of the library: its object knows the child's identifier.
    Worker forking([](Worker& self) {
        EXPECT_EQ(ResultInChild([&self] {
                      return self.GetThreadID() == CXThread::GetCurrentThreadID() && !self.IsTerminated() ? 0 : 1;
                  }),
                  0);
    });
    EXPECT_TRUE(forking.Begin().WaitForEnd(kLongTimeMs));
    SetCancelThread(false, 0);
    stop = true;
    for (std::thread& thread : busy)
        thread.join();
    ofParent.m_mayEnd = true;
    EXPECT_TRUE(ofParent.WaitForEnd(kLongTimeMs));
}

TEST(CWinCustomThread, HoldsTheComponentRuntimeWhereThereIsOne)
{
    const std::unique_ptr<CXObject> object(CWinCustomThread::GetThisRuntimeClassDescriptor()->CreateObject());
    ASSERT_TRUE(CXObject::IsKindOf(object.get(), CCustomThread::GetThisRuntimeClassDescriptor()));
    EXPECT_EQ(CCustomThread::GetRunningThreadCount(), 1u);
    const auto& thread = static_cast<const CWinCustomThread&>(*object);
    for (const bool enable : {false, true, true, false})
        EXPECT_TRUE(thread.InitOle(enable));
}
} // namespace
