#include "threads/CCustomThread.h"

#include "objects/CXCriticalSection.h"
#include "platform/Threads.h"
#include "services/CWatchFolder.h"
#include "services/LogFile.h"
#include "services/StartUp.h"
#include "settings/CCustomData.h"
#include "tests/support/Eventually.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/Sanitized.h"
#include "tests/threads/ThreadFlags.h"
#include "text/TextEncoding.h"
#include "threads/ParallelFor.h"
#include "threads/ThreadRelations.h"

#include <pthread.h>

namespace
{
using namespace tev::test;

class Worker : public CCustomThread
{
public:
    explicit Worker(std::function<void(Worker&)> body = {}) : m_body(std::move(body)) {}

    using CXThread::SetFlag;

    Worker& Begin(unsigned flags = kOwned)
    {
        EXPECT_EQ(BeginThread(this, xThreadPriorityNormal, flags, 0), this);
        return *this;
    }

    std::atomic<bool> m_isInside{false};

protected:
    bool Run() override
    {
        m_isInside = true;
        m_body(*this);
        return true;
    }

private:
    std::function<void(Worker&)> m_body;
};

void UntilAskedToEnd(Worker& self)
{
    while (!self.MustTerminate())
        CXThread::SleepCurrentThread(1);
}

void Forever(Worker&)
{
    for (;;)
        CXThread::SleepCurrentThread(1);
}

class HoldsItsLock : public CXThread
{
public:
    HoldsItsLock() : CXThread(true) {}

    std::atomic<bool> m_holdsIt{false};
    std::atomic<bool> m_mayEnd{false};

protected:
    bool Run() override
    {
        m_holdsIt = Lock(true);
        while (!m_mayEnd)
            SleepCurrentThread(1);
        return true;
    }
};

/// Each test begins and ends without workers and without the request to end.
class CCustomThreads : public testing::Test
{
protected:
    CCustomThreads() { EXPECT_TRUE(CCustomThread::EndThreads(0)); }
    ~CCustomThreads() override { EXPECT_TRUE(CCustomThread::EndThreads(0)); }
};

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

void ConvertOnce(unsigned codePage)
{
    CXTString<wchar_t> text;
    static_cast<void>(XDecodeText("a", 1, static_cast<xStringEncoding>(codePage), text));
}
void WatchOnce()
{
    CWatchFolder watch;
    watch.AddRefreshNotification(L"/etc", true, 0xFF);
    watch.CheckRefreshNotification();
}

TEST_F(CCustomThreads, VictimsCannotBlockTheTermination)
{
    CXCriticalSection lock;
    lock.Lock();
    const struct
    {
        const char* what;
        std::function<void(Worker&)> body;
        unsigned flags;
        bool waits; ///< in a call in which the thread sanitizer delivers signals
    } cases[] = {
        {"sleeps", Forever, 0, true},
        {"computes",
         [](Worker& self) {
             while (!self.MustTerminate())
             {
             }
         },
         0, false},
        {"waits for a lock", [&lock](Worker&) { const tev::LockGuard guard(lock); }, 0, false},
        {"holds its own lock",
         [](Worker& self) {
             self.Lock(true);
             Forever(self);
         },
         0, true},
        {"asks for the number of workers",
         [](Worker&) {
             while (CCustomThread::GetRunningThreadCount() != 1000)
             {
             }
         },
         0, false},
        {"changes the relations of threads",
         [](Worker&) {
             for (unsigned i = 0;; ++i)
             {
                 SetCancelThread(i % 2 == 0, 1);
                 CXThread::SleepCurrentThread(0);
             }
         },
         0, true},
        {"converts text",
         [](Worker&) {
             for (;;)
             {
                 for (const unsigned codePage :
                      {1250u, 1251u, 1253u, 1254u, 932u, 936u, 949u, 437u}) // not all kept open
                     ConvertOnce(codePage);
                 CXThread::SleepCurrentThread(1);
             }
         },
         0, false},
        {"watches folders",
         [](Worker&) {
             for (;; CXThread::SleepCurrentThread(1))
                 WatchOnce();
         },
         0, false},
        {"has a store on its stack",
         [](Worker& self) {
             const CCustomData store;
             Forever(self);
         },
         0, true},
        {"never leaves the C library",
         [](Worker&) {
             static pthread_spinlock_t taken;
             pthread_spin_init(&taken, PTHREAD_PROCESS_PRIVATE);
             pthread_spin_lock(&taken);
             pthread_spin_lock(&taken);
         },
         0, false},
        {"waits at its start", Forever, kSuspended, true},
        {"is suspended", [](Worker& self) { self.SuspendThread(); }, 0, true},
    };
    for (const auto& c : cases)
    {
#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
        if (!c.waits)
            continue;
#endif
#endif
        SCOPED_TRACE(c.what);
        Worker victim([&body = c.body](Worker& self) {
            AllowLeaks();
            body(self);
        });
        victim.Begin(kOwned | c.flags);
        EXPECT_TRUE((c.flags & kSuspended) != 0 || Eventually([&victim] { return victim.m_isInside.load(); }));
        EXPECT_TRUE(CCustomThread::HardThreadsTermination(false));
        EXPECT_TRUE(victim.IsTerminated());
        EXPECT_EQ(CCustomThread::GetRunningThreadCount(), 0u);
        unsigned exitCode = 77;
        EXPECT_TRUE(victim.GetExitCode(exitCode));
        EXPECT_EQ(exitCode, 1u);
        SetCancelThread(false, 1);
        EXPECT_FALSE(CCustomThread::HardThreadsTermination(false)) << "no worker is left";
        // Locks that the victim could not release would make these wait for ever.
        victim.Lock(true);
        victim.Lock(false);
        ConvertOnce(950);
        WatchOnce();
        if (!kIsSanitized) // which report the threads that the child lacks
        {
            EXPECT_EQ(ResultInChild([] { return 0; }), 0) << "a fork looks at all stores";
        }
    }
    lock.Unlock();
}

TEST_F(CCustomThreads, TerminationChoosesItsVictims)
{
    Worker spared(UntilAskedToEnd);
    Worker killable(Forever);
    Worker ended([](Worker&) {});
    spared.Begin();
    killable.Begin();
    ASSERT_TRUE(ended.Begin().WaitForEnd(kLongTimeMs));
    killable.SetFlag(CXThread::ThreadHardKillable, true);
    EXPECT_TRUE(CCustomThread::HardThreadsTermination(true));
    EXPECT_TRUE(killable.IsTerminated());
    EXPECT_FALSE(spared.IsTerminated());
    EXPECT_FALSE(spared.IsSuspended());
    EXPECT_EQ(CCustomThread::GetRunningThreadCount(), 2u);
    spared.StopThread();
    EXPECT_TRUE(spared.WaitForEnd(kLongTimeMs));
    EXPECT_FALSE(CCustomThread::HardThreadsTermination(false)) << "these have ended by themselves";
    EXPECT_EQ(CCustomThread::GetRunningThreadCount(), 0u);

    Worker neverStarted;
    EXPECT_FALSE(CCustomThread::HardThreadsTermination(false));
    EXPECT_TRUE(neverStarted.IsTerminated());
    EXPECT_EQ(CCustomThread::GetRunningThreadCount(), 0u);

    // A worker that calls it is not killed itself.
    std::atomic<bool> killed{true};
    Worker self([&killed](Worker&) { killed = CCustomThread::HardThreadsTermination(false); });
    EXPECT_TRUE(self.Begin().WaitForEnd(kLongTimeMs));
    EXPECT_FALSE(killed);
}

TEST_F(CCustomThreads, OneThatHoldsTheLogIsLeftSuspendedWhenItReleasesIt)
{
    if (kIsSanitized)
        GTEST_SKIP() << "sanitizers do not follow a fork of several threads";
    EXPECT_EQ(ResultInChild([] {
                  std::atomic<bool> holdsIt{false};
                  std::atomic<bool> mayRelease{false};
                  std::atomic<unsigned> count{0};
                  Worker victim([&](Worker&) {
                      LogLock(true);
                      holdsIt = true;
                      Eventually([&mayRelease] { return mayRelease.load(); });
                      LogLock(false);
                      for (;; CXThread::SleepCurrentThread(0))
                          ++count;
                  });
                  victim.Begin();
                  Eventually([&holdsIt] { return holdsIt.load(); });
                  if (CCustomThread::HardThreadsTermination(false) || !victim.IsTerminated() || victim.WaitForEnd(0))
                      return 1;
                  mayRelease = true;
                  LogLock(true);
                  for (unsigned i = 0; i < 50; ++i)
                      CXThread::SleepCurrentThread(1);
                  if (count != 0)
                      return 2;
                  std::exit(3); // which no suspended thread holds up
              }),
              3);
}

TEST_F(CCustomThreads, TerminationKillsTheChildrenToo)
{
    const auto child = std::make_unique<HoldsItsLock>();
    ASSERT_EQ(CXThread::BeginThread(child.get(), xThreadPriorityNormal, kOwned, 0), child.get());
    ASSERT_TRUE(Eventually([&child] { return child->m_holdsIt.load(); }));
    const std::unique_ptr<CXThread> unrelated(
        CXThread::BeginThread([](void*) { return Eventually([] { return ShouldCancelThread(0); }); }, nullptr,
                              xThreadPriorityNormal, kOwned, 0));
    std::thread foreign;
    std::atomic<unsigned __int64> foreignId{0};
    std::atomic<bool> foreignMayEnd{false};
    foreign = std::thread([&] {
        foreignId = CXThread::GetCurrentThreadID();
        Eventually([&] { return foreignMayEnd.load(); });
    });
    ASSERT_TRUE(Eventually([&] { return foreignId != 0; }));
    Worker parent(Forever);
    parent.Begin();
    AttachThread(child->GetThreadID(), parent.GetThreadID());
    AttachThread(foreignId, parent.GetThreadID());

    EXPECT_TRUE(CCustomThread::HardThreadsTermination(false));
    unsigned exitCode = 77;
    EXPECT_TRUE(child->GetExitCode(exitCode)) << "a child";
    EXPECT_EQ(exitCode, 1u);
    EXPECT_TRUE(child->IsTerminated() && !child->ShouldCancel()) << "though it held its object's lock";
    EXPECT_FALSE(unrelated->GetExitCode(exitCode));
    CXArray<unsigned __int64> children;
    EXPECT_EQ(GetChildThreads(parent.GetThreadID(), children), 0u);
    foreignMayEnd = true;
    foreign.join();
    SetCancelThread(true, unrelated->GetThreadID());
    EXPECT_TRUE(unrelated->WaitForEnd(kLongTimeMs));
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

/// What a child must be able to do. Its result says what it could not.
int UseThreadsInChild(const CXThread& ofParent)
{
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
        busy.emplace_back([&stop] {
            for (unsigned round = 0; !stop; ++round)
            {
                Worker worker([](Worker&) {});
                worker.Begin(round % 2 == 0 ? kOwned : kOwned | kSuspended);
                AttachThread(worker.GetThreadID(), 1);
                SetSilentThread(true, worker.GetThreadID());
                XParallelFor(10, [](unsigned) {});
                worker.ResumeThread();
                EXPECT_TRUE(worker.WaitForEnd(kLongTimeMs));
            }
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
