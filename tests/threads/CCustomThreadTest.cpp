#include "threads/CCustomThread.h"

#include "objects/CXCriticalSection.h"
#include "platform/Threads.h"
#include "tests/support/Eventually.h"
#include "threads/ThreadRelations.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <pthread.h>

namespace
{
using tev::test::Eventually;
using tev::test::kLongTimeMs;

constexpr unsigned kSuspended = CXThread::kBeginSuspended;
constexpr unsigned kOwned = CXThread::kBeginWithoutAutoDelete;

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

protected:
    bool Run() override
    {
        m_holdsIt = Lock(true);
        for (;;)
            SleepCurrentThread(1);
    }
};

/// Each test begins without workers and without the request to end.
class CCustomThreads : public testing::Test
{
protected:
    CCustomThreads() { EXPECT_TRUE(CCustomThread::EndThreads(0)); }
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
        Worker victim(c.body);
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
