#include "objects/CXCriticalSection.h"
#include "platform/Threads.h"
#include "services/CWatchFolder.h"
#include "services/LogFile.h"
#include "settings/CCustomData.h"
#include "tests/support/BusyFork.h"
#include "tests/support/Sanitized.h"
#include "tests/threads/Workers.h"
#include "text/TextEncoding.h"
#include "threads/ThreadRelations.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{
using namespace tev::test;

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

/// Whether a thread that the library started has ended.
bool IsGone(unsigned __int64 id)
{
    tev::platform::StartedThread* const thread = tev::platform::OpenThread(id);
    if (thread != nullptr)
        tev::platform::ReleaseThread(thread);
    return thread == nullptr;
}

TEST_F(CCustomThreads, WorkersOnTheStackOfAVictimAreEndedBeforeIt)
{
    if (kIsSanitized)
        GTEST_SKIP() << "objects of the stack lie elsewhere, or the threads that are left are reported";
    for (const bool runsMethods : {false, true})
    {
        std::atomic<unsigned __int64> id{0};
        Worker victim([&](Worker& self) {
            AllowLeaks();
            Worker withMethods(Forever);
            CCustomThread withFunction([](void*) { return Eventually([] { return false; }); }, nullptr);
            const Worker neverStarted;
            CCustomThread& inner = runsMethods ? withMethods : withFunction;
            EXPECT_EQ(CXThread::BeginThread(&inner, xThreadPriorityNormal, kOwned, 0), &inner);
            id = inner.GetThreadID();
            Forever(self);
        });
        victim.SetFlag(CXThread::ThreadHardKillable, true);
        victim.Begin();
        ASSERT_TRUE(Eventually([&id] { return id != 0; }));
        EXPECT_EQ(CCustomThread::GetRunningThreadCount(), 4u);
        EXPECT_TRUE(CCustomThread::HardThreadsTermination(true));
        EXPECT_TRUE(victim.IsTerminated() && IsGone(id));
        CXArray<CXWorkerState> workers;
        EXPECT_EQ(CCustomThread::GetWorkers(workers), 0u);
    }
}

// More than the guard page between two stacks.
thread_local std::array<unsigned char, 16384> t_large;

TEST_F(CCustomThreads, TheStackOfAThreadEndsBeforeTheStorageOfItsNeighbour)
{
    Worker worker([](Worker& self) {
        t_large[0] = 1;
        void* stack = nullptr;
        std::size_t size = 0;
        std::size_t guard = 0;
        pthread_attr_t attributes;
        ASSERT_EQ(pthread_getattr_np(pthread_self(), &attributes), 0);
        EXPECT_EQ(pthread_attr_getstack(&attributes, &stack, &size), 0);
        EXPECT_EQ(pthread_attr_getguardsize(&attributes, &guard), 0);
        pthread_attr_destroy(&attributes);

        const auto* const lowest = static_cast<const char*>(stack);
        tev::platform::StartedThread* const thread = tev::platform::OpenThread(self.GetThreadID());
        ASSERT_NE(thread, nullptr);
        EXPECT_TRUE(IsOnStackOf(thread, lowest) && IsOnStackOf(thread, __builtin_frame_address(0)));
        EXPECT_FALSE(IsOnStackOf(thread, lowest - guard - 1));
        EXPECT_FALSE(IsOnStackOf(thread, t_large.data()));
        tev::platform::ReleaseThread(thread);
    });
    worker.Begin();
    EXPECT_TRUE(Eventually([&worker] { return worker.IsTerminated(); }));
}

std::atomic<bool> g_mayEnd{false};

[[gnu::noinline]] void KeepAThreadOnTheStack(std::atomic<unsigned __int64>& id, Worker& self)
{
    CXThread object([](void*) { return Eventually([] { return g_mayEnd.load(); }); }, nullptr);
    EXPECT_EQ(CXThread::BeginThread(&object, xThreadPriorityNormal, kOwned, 0), &object);
    id = object.GetThreadID();
    Forever(self);
}

TEST_F(CCustomThreads, AThreadWhoseObjectWasOnTheStackOfAVictimDoesNotWriteThere)
{
    if (kIsSanitized)
        GTEST_SKIP() << "stacks are laid out otherwise";
    g_mayEnd = false;
    std::atomic<unsigned __int64> id{0};
    auto victim = std::make_unique<Worker>([&id](Worker& self) {
        std::array<volatile unsigned char, 16384> above;
        above.front() = above.back() = 0;
        KeepAThreadOnTheStack(id, self);
    });
    victim->Begin();
    ASSERT_TRUE(Eventually([&id] { return id != 0; }));
    const auto victimId = static_cast<pid_t>(victim->GetThreadID());
    EXPECT_TRUE(CCustomThread::HardThreadsTermination(false));
    victim.reset();
    ASSERT_TRUE(Eventually([victimId] { return syscall(SYS_tgkill, getpid(), victimId, 0) != 0; }));
    // Most often the next thread gets its stack.
    Worker next([&id](Worker&) {
        std::array<volatile unsigned char, 65536> mine;
        for (volatile unsigned char& byte : mine)
            byte = 0;
        g_mayEnd = true;
        EXPECT_TRUE(Eventually([&id] { return IsGone(id); }));
        EXPECT_TRUE(std::all_of(mine.begin(), mine.end(), [](unsigned char byte) { return byte == 0; }));
    });
    EXPECT_TRUE(next.Begin().WaitForEnd(kLongTimeMs));
}

TEST_F(CCustomThreads, ForksHoldUpNoTermination)
{
    if (kIsSanitized)
        GTEST_SKIP() << kNoBusyFork;
    std::atomic<bool> stop{false};
    std::thread forking([&stop] {
        while (!stop)
            EXPECT_EQ(ResultInChild([] { return 0; }), 0);
    });
    std::deque<Worker> victims;
    for (int i = 0; i < 3; ++i)
        victims.emplace_back(Forever).Begin();
    EXPECT_TRUE(Eventually([&] {
        return std::all_of(victims.begin(), victims.end(),
                           [](const Worker& victim) { return victim.m_isInside.load(); });
    }));
    EXPECT_TRUE(CCustomThread::HardThreadsTermination(false));
    unsigned exitCode = 77;
    for (const Worker& victim : victims)
        EXPECT_TRUE(victim.GetExitCode(exitCode) && exitCode == 1);
    stop = true;
    forking.join();
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
} // namespace
