#include "threads/ParallelFor.h"

#include "objects/ThreadStatus.h"
#include "platform/Threads.h"
#include "services/StartUp.h"
#include "tests/support/Eventually.h"
#include "tests/support/FileFailure.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/OnThreads.h"
#include "tests/support/Sanitized.h"
#include "threads/CCustomThread.h"
#include "threads/ThreadRelations.h"
#include "threads/WorkerCount.h"

extern "C" void omp_set_num_threads(int count);

namespace
{
using namespace tev::test;

constexpr unsigned kWorkers = 4;

/// Makes the run-time's maximum four, as OMP_NUM_THREADS does, whatever the machine has.
class ThreadLoops : public testing::Test
{
protected:
    ThreadLoops()
    {
        omp_set_num_threads(kWorkers);
        InitFerngateApplication();
    }
};

/// A worker that runs one function.
class Runner : public CCustomThread
{
public:
    explicit Runner(std::function<bool()> run) : m_run(std::move(run))
    {
        EXPECT_EQ(BeginThread(this, xThreadPriorityNormal, kBeginWithoutAutoDelete, 0), this);
    }
    ~Runner() override { EXPECT_TRUE(WaitForEnd(kLongTimeMs)); }

    bool Succeeds() const
    {
        unsigned exitCode = 77;
        return WaitForEnd(kLongTimeMs) && GetExitCode(exitCode) && exitCode == 0;
    }

protected:
    bool Run() override { return m_run(); }

private:
    const std::function<bool()> m_run;
};

bool EndlessLoop(std::atomic<unsigned>& begun)
{
    return XParallelFor(~0u, [&begun](unsigned) {
        ++begun;
        CXThread::SleepCurrentThread(0);
    });
}

TEST_F(ThreadLoops, CountAndChunkSizeAreLimited)
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

TEST_F(ThreadLoops, LoopsDoEachItemOnce)
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

TEST_F(ThreadLoops, LoopsStop)
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
        EXPECT_NO_THROW(
            Caught<CXUserException>([] { XParallelFor(kMany, [](unsigned) { CXUserException::Throw(); }); }));

        begun = 0;
        EXPECT_FALSE(XParallelFor(kMany, [&begun, caller](unsigned) {
            ++begun;
            SetCancelThread(true, caller);
        }));
        EXPECT_LE(begun, workers) << "each finishes the item that it is at";
        EXPECT_FALSE(XParallelFor(1, [](unsigned) { ADD_FAILURE(); }));
        SetCancelThread(false, caller);
        EXPECT_TRUE(XParallelFor(2, [&](unsigned i) { SetCancelThread(i == 1, caller); }) || workers > 1);
        SetCancelThread(false, caller);
    }
}

TEST_F(ThreadLoops, LoopsOfThreadsThatAreAskedToEndStop)
{
    for (const unsigned workers : {1u, kWorkers})
    {
        OMPSetMaxThreadCount(workers);
        const std::pair<const char*, std::function<void(Runner&)>> ways[] = {
            {"its object is cancelled", [](Runner& runner) { runner.SetCancel(); }},
            {"its object is stopped", [](Runner& runner) { runner.StopThread(); }},
            {"its identifier is cancelled", [](Runner& runner) { SetCancelThread(true, runner.GetThreadID()); }},
            {"an ancestor is cancelled",
             [](Runner& runner) {
                 SetCancelThread(true, 1001);
                 AttachThread(runner.GetThreadID(), 1001);
             }},
            {"all workers are to end", [](Runner&) { CCustomThread::AskForThreadsEnd(false); }},
        };
        for (const auto& [what, ask] : ways)
        {
            SCOPED_TRACE(what);
            std::atomic<unsigned> begun{0};
            {
                Runner runner([&begun] { return !EndlessLoop(begun); });
                EXPECT_TRUE(Eventually([&begun] { return begun > 0; }));
                ask(runner);
                EXPECT_TRUE(runner.Succeeds());
            }
            SetCancelThread(false, 1001);
            EXPECT_TRUE(CCustomThread::EndThreads(0));
        }
    }
}

/// Whether a loop is done by several threads at once.
bool IsShared()
{
    std::atomic<unsigned> inside{0};
    return XParallelFor(2, [&inside](unsigned) {
        ++inside;
        return Eventually([&inside] { return inside == 2; });
    });
}

TEST_F(ThreadLoops, BodiesRunOnBehalfOfTheCaller)
{
    const unsigned __int64 caller = CXThread::GetCurrentThreadID();
    SetSilentThread(true, 0);
    std::atomic<unsigned> inside{0};
    EXPECT_TRUE(XParallelFor(kWorkers, [&](unsigned) {
        const unsigned __int64 own = CXThread::GetCurrentThreadID();
        EXPECT_TRUE(IsSilentThread(0));
        EXPECT_EQ(IsSilentThread(own), own == caller);
        EXPECT_EQ(tev::platform::OpenThread(own), nullptr) << "no thread of the program";
        EXPECT_EQ(CCustomThread::GetRunningThreadCount(), 0u);
        AttachThread(own, 4001); // nor one that is killed with its parent
        ++inside;
        Eventually([&inside] { return inside == kWorkers; });
    }));
    SetSilentThread(false, 0);
    CXArray<unsigned __int64> attached;
    ASSERT_EQ(GetChildThreads(4001, attached), kWorkers);
    for (int i = 0; i < attached.GetSize(); ++i)
        DetachThread(attached[i]);
}

TEST_F(ThreadLoops, LoopsOfSeveralThreadsRunAtOnce)
{
    std::atomic<unsigned> sum{0};
    std::atomic<unsigned> failed{0};
    OnThreads(6, [&](int) {
        for (unsigned round = 0; round < 200; ++round)
        {
            std::atomic<unsigned> own{0};
            failed += !XParallelFor(round, [&own](unsigned i) { own += i; }) || own != round * (round - 1) / 2;
            sum += own;
        }
    });
    EXPECT_EQ(failed, 0u);
    EXPECT_EQ(sum, 6u * (200 * 199 * 198 / 6));
}

TEST_F(ThreadLoops, WithoutThreadsOrMemoryTheCallerDoesAllAlone)
{
    if (kIsSanitized)
        GTEST_SKIP() << "sanitizers need the address space that this test takes away";
    EXPECT_EQ(ResultInChild([] {
                  // Not by the address space alone: the C library keeps stacks of ended threads for the next ones.
                  // The system's own user may start threads at any limit.
                  constexpr uid_t nobody = 65534;
                  const rlimit none = {1, 1};
                  if ((geteuid() == 0 && setuid(nobody) != 0) || setrlimit(RLIMIT_NPROC, &none) != 0 ||
                      setrlimit(RLIMIT_AS, &none) != 0)
                      return 2;
                  unsigned done = 0;
                  const bool all = XParallelFor(1000, [&done](unsigned) { ++done; });
                  return all && done == 1000 ? 0 : 1;
              }),
              0);
}

TEST_F(ThreadLoops, HelpersAreAsTheProcessIsWhoeverMadeThem)
{
    if (kIsSanitized)
        GTEST_SKIP() << "sanitizers do not follow a fork of several threads";
    if (geteuid() != 0)
        GTEST_SKIP() << "only the system's own user may raise a priority";
    constexpr int kNice = 3;
    const auto makePool = [] { // in a child, which has no pool yet
        setpriority(PRIO_PROCESS, 0, kNice + 6);
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, nullptr);
        cpu_set_t first;
        CPU_ZERO(&first);
        CPU_SET(0, &first);
        sched_setaffinity(0, sizeof first, &first);
        static_cast<void>(IsShared());
    };
    EXPECT_EQ(ResultInChild([&makePool] {
                  setpriority(PRIO_PROCESS, 0, kNice);
                  cpu_set_t whole;
                  sched_getaffinity(0, sizeof whole, &whole);
                  std::thread(makePool).join();
                  const pid_t caller = gettid();
                  std::atomic<unsigned> wrong{0};
                  std::atomic<unsigned> helpers{0};
                  const auto look = [&](unsigned) {
                      if (gettid() == caller)
                          return static_cast<void>(Eventually([&helpers] { return helpers != 0; }));
                      cpu_set_t mine;
                      sigset_t blocked;
                      wrong += getpriority(PRIO_PROCESS, 0) != kNice;
                      wrong += sched_getaffinity(0, sizeof mine, &mine) != 0 || !CPU_EQUAL(&mine, &whole);
                      wrong +=
                          pthread_sigmask(SIG_BLOCK, nullptr, &blocked) != 0 || sigismember(&blocked, SIGSEGV) != 0;
                      ++helpers;
                  };
                  return XParallelFor(kWorkers, look) && helpers != 0 && wrong == 0 ? 0 : 1;
              }),
              0);
}

TEST_F(ThreadLoops, ForkedChildrenMakeTheirOwnThreads)
{
    if (kIsSanitized)
        GTEST_SKIP() << "sanitizers do not follow a fork of several threads";
    ASSERT_TRUE(IsShared());
    EXPECT_EQ(ResultInChild([] {
                  Runner runner([] { return IsShared(); });
                  return IsShared() && runner.Succeeds() ? 0 : 1;
              }),
              0);
    // A fork inside a loop: the child does not have the other threads, so the loop is not complete there.
    for (const bool isCaller : {true, false})
    {
        const unsigned __int64 caller = CXThread::GetCurrentThreadID();
        const pid_t parent = getpid();
        std::atomic<unsigned> inside{0};
        std::atomic<int> result{77};
        const bool all = XParallelFor(2, [&](unsigned) {
            ++inside;
            Eventually([&inside] { return inside == 2; });
            if ((CXThread::GetCurrentThreadID() == caller) != isCaller)
                Eventually([&result] { return result != 77; });
            else if (const pid_t child = fork(); child == 0)
                alarm(isCaller ? 30 : 7); // sooner than a thread of the pool ends that waits for work
            else
                result = ResultOf(child);
        });
        if (getpid() != parent)
            _exit(!all && IsShared() ? 0 : 1);
        EXPECT_TRUE(all);
        EXPECT_EQ(result, 0) << "the child of a helper ends with it";
    }
}

/// Where a killed caller's helpers are.
struct Loops
{
    static constexpr unsigned kIntact = 0x600DF00D;

    std::atomic<unsigned> begun{0};
    std::atomic<unsigned> left{0};
    std::atomic<unsigned> intact{0};
    std::atomic<bool> mayLeave{false};

    /// A loop whose caller stays in its item; the helpers leave theirs as told, and look at the caller's stack then.
    bool Run(bool untilAskedToEnd)
    {
        const volatile unsigned onStack = kIntact;
        const unsigned __int64 caller = CXThread::GetCurrentThreadID();
        return XParallelFor(1000, [&, untilAskedToEnd](unsigned) {
            ++begun;
            while (CXThread::GetCurrentThreadID() == caller)
                CXThread::SleepCurrentThread(1);
            Eventually([&] { return untilAskedToEnd ? tev::IsThreadAskedToEnd() : mayLeave.load(); });
            intact += onStack == kIntact;
            ++left;
        });
    }
};

TEST_F(ThreadLoops, CallersAreKilledWhenTheirHelpersHaveLeft)
{
    for (int round = 0; round < 3; ++round)
    {
        Loops loops;
        Runner caller([&loops] {
            AllowLeaks();
            return loops.Run(true);
        });
        ASSERT_TRUE(Eventually([&loops] { return loops.begun == kWorkers; }));
        EXPECT_TRUE(CCustomThread::HardThreadsTermination(false));
        EXPECT_EQ(loops.left, kWorkers - 1) << "before the caller has ended";
        EXPECT_EQ(loops.intact, kWorkers - 1);
        EXPECT_TRUE(IsShared()) << "the pool goes on";
        EXPECT_EQ(loops.begun, kWorkers) << "no further item";
    }
}

TEST_F(ThreadLoops, CallersWhoseHelpersStayAreKilledAllTheSame)
{
    Loops loops;
    Runner caller([&loops] {
        AllowLeaks();
        return loops.Run(false);
    });
    ASSERT_TRUE(Eventually([&loops] { return loops.begun == kWorkers; }));
    EXPECT_TRUE(CCustomThread::HardThreadsTermination(false));
    EXPECT_EQ(loops.left, 0u);
    // The stack stays: no other thread gets it.
    for (int i = 0; i < 20; ++i)
    {
        std::thread([] {
            volatile char used[65536];
            for (volatile char& byte : used)
                byte = 0x55;
        }).join();
    }
    std::atomic<unsigned> done{0};
    EXPECT_TRUE(XParallelFor(1000, [&done](unsigned) { ++done; }) && done == 1000) << "though no helper is free";
    loops.mayLeave = true;
    EXPECT_TRUE(Eventually([&loops] { return loops.left == kWorkers - 1; }));
    EXPECT_EQ(loops.intact, kWorkers - 1);
    EXPECT_TRUE(IsShared());
    EXPECT_EQ(loops.begun, kWorkers);
}

TEST_F(ThreadLoops, ManyCallersAreKilledInShortLoops)
{
    for (int round = 0; round < 20; ++round)
    {
        std::atomic<unsigned> begun{0};
        Runner caller([&begun]() -> bool {
            AllowLeaks();
            for (;;)
            {
                std::atomic<unsigned> onStack{0};
                XParallelFor(200, [&](unsigned i) { onStack += i; });
                ++begun;
                CXThread::SleepCurrentThread(0);
            }
        });
        ASSERT_TRUE(Eventually([&begun] { return begun > 3; }));
        EXPECT_TRUE(CCustomThread::HardThreadsTermination(false));
    }
    EXPECT_TRUE(IsShared());
}

TEST_F(ThreadLoops, TheSystemCanEndABody)
{
    for (const bool isCaller : {true, false})
    {
        std::atomic<unsigned> begun{0};
        std::atomic<bool> hasReturned{false};
        Runner runner([&, isCaller] {
            const unsigned __int64 caller = CXThread::GetCurrentThreadID();
            const bool all = XParallelFor(2, [&, isCaller](unsigned) {
                ++begun;
                Eventually([&begun] { return begun == 2; });
                if ((CXThread::GetCurrentThreadID() == caller) == isCaller)
                    pthread_exit(nullptr);
            });
            hasReturned = true;
            return !all;
        });
        EXPECT_EQ(runner.Succeeds(), !isCaller);
        EXPECT_EQ(hasReturned, !isCaller);
        EXPECT_TRUE(IsShared());
    }
}
} // namespace
