#include "threads/CXThread.h"

#include "objects/CXCriticalSection.h"
#include "objects/ThreadException.h"
#include "platform/ThreadLocks.h"
#include "platform/Threads.h"
#include "services/LogFile.h"
#include "services/StartUp.h"
#include "tests/support/Eventually.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/OnThreads.h"
#include "tests/support/Sanitized.h"
#include "tests/threads/ThreadFlags.h"
#include "threads/ThreadRelations.h"

namespace
{
using namespace tev::test;
namespace platform = tev::platform;

constexpr unsigned kFailed = 0xFFFFFFFFu;

std::atomic<int> g_living{0};

/// A thread whose body is a lambda.
class TestThread : public CXThread
{
public:
    X_DECLARE_CLASS(TestThread)

    TestThread() : TestThread(nullptr) {}
    explicit TestThread(std::function<bool(TestThread&)> run) : CXThread(true), m_run(std::move(run)) { ++g_living; }
    ~TestThread() override { --g_living; }

    using CXThread::IsFlagSet;
    using CXThread::SetFlag;

    bool m_starts = true;
    std::string m_calls;

protected:
    bool Start() override
    {
        m_calls += "S";
        return m_starts;
    }
    bool Run() override
    {
        m_calls += "R";
        return m_run ? m_run(*this) : GetUserThreadData() != nullptr;
    }
    void Finish() override { m_calls += "F"; }

private:
    std::function<bool(TestThread&)> m_run;
};
X_IMPLEMENT_CLASS(TestThread, CXThread, xSchemaNotSerializable)

std::unique_ptr<TestThread> Begin(std::function<bool(TestThread&)> run, unsigned flags = kOwned,
                                  xThreadPriority priority = xThreadPriorityNormal)
{
    auto thread = std::make_unique<TestThread>(std::move(run));
    EXPECT_EQ(CXThread::BeginThread(thread.get(), priority, flags, 0), thread.get());
    return thread;
}

/// Counts until it is cancelled. It sleeps, because the thread sanitizer delivers signals in such calls only.
bool CountUntilCancelled(CXThread& thread, std::atomic<unsigned>& count)
{
    while (!thread.ShouldCancel())
    {
        ++count;
        CXThread::SleepCurrentThread(0);
    }
    return true;
}

/// True when the count of a thread has changed by the time that of another one has advanced by 50.
bool Moves(const std::atomic<unsigned>& count, const std::atomic<unsigned>& other)
{
    const unsigned before = count;
    const unsigned otherBefore = other;
    EXPECT_TRUE(Eventually([&] { return other - otherBefore > 50; }));
    return count != before;
}

TEST(CXThread, EndsAsItsBodySays)
{
    const struct
    {
        const char* what;
        bool starts;
        std::function<bool(TestThread&)> run;
        unsigned exitCode;
        const char* calls;
        const CXRuntimeClass* endedBy = nullptr;
    } cases[] = {
        {"success", true, [](TestThread&) { return true; }, 0, "SRF"},
        {"failure", true, [](TestThread&) { return false; }, kFailed, "SRF"},
        {"no start", false, [](TestThread&) { return true; }, kFailed, "SF"},
        {"foreign exception", true, [](TestThread&) -> bool { throw 5; }, kFailed, "SR"},
        {"exception", true, [](TestThread&) -> bool { CXUserException::Throw(); }, kFailed, "SR",
         CXUserException::GetThisRuntimeClassDescriptor()},
        {"unrecorded exception", true, [](TestThread&) -> bool { throw new CXException; }, kFailed, "SR",
         CXException::GetThisRuntimeClassDescriptor()},
        {"swallowed exception", true, [](TestThread&) { return XSetThreadException(new CXException), true; }, 0, "SRF"},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.what);
        TestThread thread(c.run);
        thread.m_starts = c.starts;
        unsigned exitCode = 77;
        EXPECT_FALSE(thread.IsValidThread() || thread.WaitForEnd(0) || thread.GetExitCode(exitCode));
        XSetThreadException(new CXException);
        ASSERT_EQ(CXThread::BeginThread(&thread, xThreadPriorityNormal, kOwned, 1), &thread);
        EXPECT_EQ(XTakeThreadException(), nullptr);
        ASSERT_TRUE(thread.WaitForEnd(kLongTimeMs));
        EXPECT_TRUE(thread.IsTerminated());
        ASSERT_TRUE(thread.GetExitCode(exitCode));
        EXPECT_EQ(exitCode, c.exitCode);
        EXPECT_EQ(thread.m_calls, c.calls);
        const std::unique_ptr<CXException> exception(thread.TakeException());
        EXPECT_EQ(exception == nullptr ? nullptr : exception->GetRuntimeClassDescriptor(), c.endedBy);
        EXPECT_EQ(thread.TakeException(), nullptr) << "handed out once";
        EXPECT_FALSE(thread.ResumeThread());
        EXPECT_TRUE(thread.SuspendThread()) << "also when the system refuses";
    }
}

TEST(CXThread, ASecondStartFails)
{
    const auto startAgain = [](CXThread* thread) {
        XSetThreadException(new CXException);
        EXPECT_EQ(CXThread::BeginThread(thread, xThreadPriorityNormal, 0, 0), nullptr);
        EXPECT_EQ(XTakeThreadException(), nullptr);
    };
    // While the thread has not ended, the object is left alone.
    const auto running = Begin([](TestThread& self) { return Eventually([&self] { return self.ShouldCancel(); }); });
    startAgain(running.get());
    EXPECT_FALSE(running->IsFlagSet(CXThread::ThreadAutoDelete));
    running->SetCancel();
    EXPECT_TRUE(running->WaitForEnd(kLongTimeMs));

    // Afterwards it is deleted for a caller that can know of the end.
    for (const bool asksFirst : {true, false})
    {
        auto ended = Begin([](TestThread&) { return true; });
        unsigned exitCode;
        while (!platform::HasEnded(static_cast<platform::StartedThread*>(ended->GetThreadHandle()), exitCode))
            std::this_thread::yield();
        EXPECT_TRUE(!asksFirst || ended->IsTerminated());
        TestThread* const object = ended.release();
        g_living = 1;
        std::thread([&] { startAgain(object); }).join();
        EXPECT_EQ(g_living, asksFirst ? 0 : 1) << "another thread, which may be starting it as well";
        if (!asksFirst)
            startAgain(object);
        EXPECT_EQ(g_living, 0);
    }
}

TEST(CXThread, OfTwoStartsAtOnceOneWins)
{
    for (int round = 0; round < 300; ++round)
    {
        std::atomic<int> runs{0};
        std::atomic<int> starters{0};
        std::atomic<int> started{0};
        TestThread thread([&runs](TestThread&) { return ++runs != 0; });
        OnThreads(2, [&](int) {
            for (++starters; starters < 2;)
            {
            }
            started += CXThread::BeginThread(&thread, xThreadPriorityNormal, kOwned, 0) != nullptr ? 1 : 0;
        });
        ASSERT_EQ(started, 1);
        ASSERT_TRUE(thread.WaitForEnd(kLongTimeMs));
        ASSERT_EQ(runs, 1);
    }
}

TEST(CXThread, IsStartedFromAFunctionOrAClassToo)
{
    unsigned __int64 idInside = 0;
    const auto function = [](void* id) {
        *static_cast<unsigned __int64*>(id) = CXThread::GetCurrentThreadID();
        return true;
    };
    const std::unique_ptr<CXThread> thread(
        CXThread::BeginThread(function, &idInside, xThreadPriorityNormal, kOwned | 0xFFFFFFF8u, 0));
    ASSERT_NE(thread, nullptr);
    EXPECT_EQ(thread->GetUserThreadData(), &idInside);
    ASSERT_TRUE(thread->WaitForEnd(kLongTimeMs));
    EXPECT_EQ(thread->GetThreadID(), idInside);
    EXPECT_NE(idInside, CXThread::GetCurrentThreadID());

    int data = 0;
    const std::unique_ptr<CXThread> made(CXThread::BeginThread(TestThread::GetThisRuntimeClassDescriptor(), &data,
                                                               xThreadPriorityNormal, kOwned, 0xFFFFFFFF00000001ull));
    ASSERT_NE(made, nullptr);
    ASSERT_TRUE(made->WaitForEnd(kLongTimeMs));
    unsigned exitCode = 77;
    EXPECT_TRUE(made->GetExitCode(exitCode));
    EXPECT_EQ(exitCode, 0u);

    const CXRuntimeClass* const none[] = {nullptr, CXThread::GetThisRuntimeClassDescriptor(),
                                          CXException::GetThisRuntimeClassDescriptor()};
    for (const CXRuntimeClass* type : none)
        EXPECT_EQ(CXThread::BeginThread(type, nullptr, xThreadPriorityNormal, 0, 0), nullptr);
    EXPECT_EQ(CXThread::BeginThread(static_cast<CXThread*>(nullptr), xThreadPriorityNormal, 0, 0), nullptr);
}

TEST(CXThread, DeletesItselfWithAutoDelete)
{
    g_living = 0;
    std::atomic<bool> go{false};
    auto* const thread = new TestThread([&go](TestThread&) { return Eventually([&go] { return go.load(); }); });
    ASSERT_EQ(CXThread::BeginThread(thread, xThreadPriorityNormal, 0, 0), thread);
    EXPECT_TRUE(thread->IsFlagSet(CXThread::ThreadAutoDelete));
    EXPECT_EQ(g_living, 1);
    go = true;
    EXPECT_TRUE(Eventually([] { return g_living == 0; }));

    // The object may be deleted before BeginThread or ResumeThread returns: neither may use it then.
    for (int i = 0; i < 100; ++i)
    {
        auto* const hasty = new TestThread([](TestThread&) { return true; });
        CXThread::BeginThread(hasty, xThreadPriorityNormal, i % 2 == 0 ? 0 : kSuspended, 0);
        if (i % 2 != 0)
            hasty->ResumeThread();
    }
    EXPECT_TRUE(Eventually([] { return g_living == 0; }));
}

TEST(CXThread, OwnersDeleteTheObjectAsSoonAsItIsTerminated)
{
    for (int i = 0; i < 200; ++i)
    {
        const auto thread = Begin([](TestThread&) { return true; });
        while (!thread->IsTerminated())
            std::this_thread::yield();
    }
}

TEST(CXThread, StartsSuspended)
{
    std::atomic<bool> ran{false};
    const auto run = [&ran](TestThread&) { return ran = true; };
    const auto thread = Begin(run, kSuspended | kOwned);
    EXPECT_TRUE(thread->IsSuspended());
    thread->SuspendThread();
    EXPECT_TRUE(thread->ResumeThread());
    EXPECT_FALSE(thread->WaitForEnd(20)) << "suspended twice, resumed once";
    EXPECT_FALSE(ran);
    EXPECT_TRUE(thread->ResumeThread());
    EXPECT_FALSE(thread->IsSuspended());
    EXPECT_TRUE(thread->WaitForEnd(kLongTimeMs));
    EXPECT_TRUE(ran);

    // Without its object it ends, and its body is never run.
    ran = false;
    auto neverRun = Begin(run, kSuspended | kOwned);
    neverRun->SuspendThread();
    platform::StartedThread* const system = platform::OpenThread(neverRun->GetThreadID());
    ASSERT_NE(system, nullptr);
    neverRun.reset();
    EXPECT_TRUE(platform::WaitForThread(system, kLongTimeMs));
    platform::ReleaseThread(system);
    EXPECT_FALSE(ran);
}

TEST(CXThread, TheSystemCanEndABody)
{
    static std::atomic<pthread_t> id;
    static std::atomic<bool> isUnwound;
    for (const bool isCancelled : {false, true})
    {
        if (kIsSanitized && isCancelled)
            continue; // the thread sanitizer does not follow a cancellation out of a call that it intercepts
        SCOPED_TRACE(isCancelled ? "it is cancelled in a call of the library" : "it exits");
        id = pthread_t{};
        isUnwound = false;
        const auto thread = Begin([isCancelled](TestThread&) -> bool {
            const std::shared_ptr<void> witness(nullptr, [](void*) { isUnwound = true; });
            id = pthread_self();
            while (isCancelled)
                CXThread::SleepCurrentThread(1);
            pthread_exit(nullptr);
        });
        if (isCancelled)
        {
            ASSERT_TRUE(Eventually([] { return id != pthread_t{}; }));
            pthread_cancel(id);
        }
        ASSERT_TRUE(thread->WaitForEnd(kLongTimeMs));
        unsigned exitCode = 77;
        EXPECT_TRUE(thread->IsTerminated() && thread->GetExitCode(exitCode));
        EXPECT_EQ(exitCode, kFailed);
        EXPECT_TRUE(isUnwound);
    }
    g_living = 0;
    CXThread::BeginThread(new TestThread([](TestThread&) -> bool { pthread_exit(nullptr); }), xThreadPriorityNormal, 0,
                          0);
    EXPECT_TRUE(Eventually([] { return g_living == 0; })) << "auto-delete";
}

TEST(CXThread, StandsStillWhileItIsSuspended)
{
    std::atomic<unsigned> count{0};
    std::atomic<unsigned> otherCount{0};
    const auto thread = Begin([&count](TestThread& self) { return CountUntilCancelled(self, count); });
    const auto other = Begin([&otherCount](TestThread& self) { return CountUntilCancelled(self, otherCount); });
    for (int round = 0; round < 5; ++round)
    {
        EXPECT_TRUE(Eventually([&, before = count.load()] { return count != before; }));
        EXPECT_TRUE(thread->SuspendThread());
        EXPECT_TRUE(thread->IsSuspended());
        {
            const CXThreadSuspension suspension(*thread);
        }
        EXPECT_FALSE(Moves(count, otherCount));
        EXPECT_TRUE(thread->SuspendThread());
        EXPECT_TRUE(thread->ResumeThread());
        EXPECT_FALSE(thread->IsSuspended());
        EXPECT_FALSE(Moves(count, otherCount)) << "suspended twice";
        EXPECT_TRUE(thread->ResumeThread());
    }
    EXPECT_TRUE(thread->ResumeThread()) << "though it runs";
    thread->SetCancel();
    other->SetCancel();
    EXPECT_TRUE(thread->WaitForEnd(kLongTimeMs) && other->WaitForEnd(kLongTimeMs));

    const auto self = Begin([](TestThread& me) { return me.SuspendThread(); });
    EXPECT_TRUE(Eventually([&self] { return self->IsSuspended(); }));
    EXPECT_TRUE(Eventually([&self] {
        self->ResumeThread();
        return self->IsTerminated();
    }));
}

TEST(CXThread, SuspensionLeavesNoLockBehind)
{
    CXCriticalSection lock;
    const auto thread = Begin([&lock](TestThread& self) {
        while (!self.ShouldCancel())
        {
            CXThread::SleepCurrentThread(0);
            const tev::LockGuard guard(lock);
            CXThread::SleepCurrentThread(0);
            SetCancelThread(false, 1);
            SetSilentThread(true, 0);
        }
        return true;
    });
    int heldUp = 0;
    for (int round = 0; round < 50; ++round)
    {
        thread->SuspendThread();
        if (lock.TryLock())
            lock.Unlock();
        else
            ++heldUp;
        SetCancelThread(false, 1);
        EXPECT_FALSE(thread->ShouldCancel());
        thread->ResumeThread();
    }
    EXPECT_EQ(heldUp, 0);
    thread->SetCancel();
    EXPECT_TRUE(thread->WaitForEnd(kLongTimeMs));
}

TEST(CXThread, StopsWhenItReleasesALockOfTheLibrary)
{
    tev::platform::SystemLock lowest;
    const struct
    {
        const char* what;
        std::function<void(bool)> hold;
        bool holdsAnother; ///< of the program
    } cases[] = {{"the log's", &LogLock, false},
                 {"one of the low floors", [&lowest](bool take) { take ? lowest.lock() : lowest.unlock(); }, true}};
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.what);
        std::atomic<bool> holdsIt{false};
        std::atomic<bool> mayRelease{false};
        std::atomic<unsigned> count{0};
        std::atomic<unsigned> otherCount{0};
        const auto other = Begin([&otherCount](TestThread& self) { return CountUntilCancelled(self, otherCount); });
        const auto thread = Begin([&](TestThread& self) {
            self.Lock(c.holdsAnother);
            c.hold(true);
            holdsIt = true;
            Eventually([&mayRelease] { return mayRelease.load(); });
            EXPECT_TRUE(kIsSanitized || ResultInChild([&c] {
                                            c.hold(false);
                                            return 5;
                                        }) == 5)
                << "nobody would resume it in a forked child";
            c.hold(false);
            ++count;
            self.Lock(false);
            return CountUntilCancelled(self, count);
        });
        EXPECT_TRUE(Eventually([&holdsIt] { return holdsIt.load(); }));
        EXPECT_TRUE(thread->SuspendThread());
        mayRelease = true;
        c.hold(true);
        c.hold(false);
        EXPECT_FALSE(Moves(count, otherCount));
        EXPECT_EQ(count, 0u);
        EXPECT_TRUE(thread->ResumeThread());
        EXPECT_TRUE(Eventually([&count] { return count > 1; }));
        for (const auto* each : {&thread, &other})
        {
            (*each)->SetCancel();
            EXPECT_TRUE((*each)->WaitForEnd(kLongTimeMs));
        }
    }
}

TEST(CXThread, PrioritiesAreWhatTheSystemAllows)
{
    const auto thread = Begin([](TestThread& self) { return Eventually([&self] { return self.ShouldCancel(); }); },
                              kOwned, xThreadPriorityBelowNormal);
    EXPECT_EQ(thread->GetThreadPriority(), xThreadPriorityBelowNormal);
    const int normal = getpriority(PRIO_PROCESS, static_cast<id_t>(getpid()));
    const std::pair<unsigned, int> niceOf[] = {{4, -5}, {5, -10}, {3, 0}, {0, 0}, {77, 0}, {2, 5}, {1, 10}};
    for (const auto& [value, nice] : niceOf)
    {
        const auto priority = static_cast<xThreadPriority>(value);
        const bool allowed = thread->SetThreadPriority(priority);
        EXPECT_EQ(thread->GetThreadPriority(), allowed ? value : 0u);
        const int applied = getpriority(PRIO_PROCESS, static_cast<id_t>(thread->GetThreadID()));
        EXPECT_TRUE(!allowed || applied == normal + nice) << value;
        EXPECT_TRUE(allowed || geteuid() != 0) << value;
    }
    thread->SetCancel();
    ASSERT_TRUE(thread->WaitForEnd(kLongTimeMs));
    EXPECT_FALSE(thread->SetThreadPriority(xThreadPriorityLowest));
    EXPECT_EQ(thread->GetThreadPriority(), 0u);
    EXPECT_FALSE(TestThread().SetThreadPriority(xThreadPriorityLowest));
}

TEST(CXThread, ItsLockHoldsUpItsEndOnly)
{
    std::atomic<bool> ran{false};
    const auto thread = Begin([&ran](TestThread&) { return ran = true; }, kOwned | kSuspended);
    {
        const CXThreadLock lock(*thread);
        thread->ResumeThread();
        EXPECT_TRUE(Eventually([&ran] { return ran.load(); })) << "while the lock is held";
        EXPECT_FALSE(thread->WaitForEnd(20));
        EXPECT_FALSE(thread->IsTerminated());
    }
    EXPECT_TRUE(thread->WaitForEnd(kLongTimeMs));
    EXPECT_TRUE(thread->IsTerminated());

    const auto keepsIt = Begin([](TestThread& self) { return self.Lock(true); });
    EXPECT_TRUE(keepsIt->WaitForEnd(kLongTimeMs)) << "and it can be destroyed";
}

TEST(CXThread, BodiesHaveAStackForSignalHandlers)
{
    const auto thread = Begin([](TestThread&) {
        stack_t standing = {};
        return sigaltstack(nullptr, &standing) == 0 && (standing.ss_flags & SS_DISABLE) == 0;
    });
    unsigned exitCode = 77;
    EXPECT_TRUE(thread->WaitForEnd(kLongTimeMs) && thread->GetExitCode(exitCode));
    EXPECT_EQ(exitCode, 0u);
}

TEST(CXThread, WhenTheSystemRefusesTheThreadTheObjectIsDeleted)
{
    if (kIsSanitized)
        GTEST_SKIP() << "sanitizers need the address space that this test takes away";
    rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_AS, &before), 0);
    const rlimit little = {rlim_t{2} << 30, before.rlim_max};
    g_living = 0;
    auto* const thread = new TestThread;
    ASSERT_EQ(setrlimit(RLIMIT_AS, &little), 0);
    EXPECT_EQ(CXThread::BeginThread(thread, xThreadPriorityNormal, 0, 0xFFFFF000u), nullptr);
    ASSERT_EQ(setrlimit(RLIMIT_AS, &before), 0);
    EXPECT_EQ(g_living, 0);
}

TEST(CXThread, ManyAreSuspendedAndResumedFromSeveralThreads)
{
    std::vector<std::unique_ptr<TestThread>> threads;
    std::atomic<unsigned> count{0};
    for (int i = 0; i < 4; ++i)
        threads.push_back(Begin([&count](TestThread& self) { return CountUntilCancelled(self, count); }));
    OnThreads(3, [&threads](int number) {
        for (unsigned i = 0; i < 100; ++i)
        {
            TestThread& thread = *threads[i * static_cast<unsigned>(number + 1) % threads.size()];
            thread.SuspendThread();
            thread.SetThreadPriority(static_cast<xThreadPriority>(i % 3 + 1));
            thread.ResumeThread();
        }
    });
    for (const auto& thread : threads)
        thread->SetCancel();
    for (const auto& thread : threads)
        EXPECT_TRUE(thread->WaitForEnd(kLongTimeMs));
}

TEST(CXThread, TheMainThreadIsTheOneThatStartedUp)
{
    EXPECT_EQ(CXThread::GetMainThreadID(), GetApplicationMainThreadID());
    InitFerngateApplication();
    EXPECT_EQ(GetApplicationMainThreadID(), CXThread::GetCurrentThreadID());
    EXPECT_NE(CXThread::GetCurrentThreadID(), 0u);
}
} // namespace
