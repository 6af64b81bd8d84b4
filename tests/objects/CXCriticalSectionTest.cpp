#include "objects/CXSingleLock.h"
#include "platform/AddressWait.h"
#include "platform/ProcessorPause.h"
#include "platform/ThreadLocks.h"
#include "tests/support/BusyFork.h"
#include "tests/support/Eventually.h"
#include "tests/support/OnThreads.h"

namespace
{
using namespace tev::test;

// The compiler's analysis would reject what these tests do with a lock on purpose.
bool Lock(CXCriticalSection& lock) X_NO_THREAD_SAFETY_ANALYSIS
{
    return lock.Lock();
}

bool TryLock(CXCriticalSection& lock) X_NO_THREAD_SAFETY_ANALYSIS
{
    return lock.TryLock();
}

bool Unlock(CXCriticalSection& lock) X_NO_THREAD_SAFETY_ANALYSIS
{
    return lock.Unlock();
}

/// Whether another thread finds the lock free.
bool IsFree(CXCriticalSection& lock)
{
    bool taken = false;
    std::thread([&] {
        taken = TryLock(lock);
        if (taken)
            Unlock(lock);
    }).join();
    return taken;
}

TEST(CXCriticalSectionThreads, TheOwnerMayLockAgain)
{
    CXCriticalSection lock;
    EXPECT_FALSE(lock.IsLocked());
    EXPECT_TRUE(Lock(lock));
    EXPECT_TRUE(TryLock(lock));
    EXPECT_TRUE(Unlock(lock));
    EXPECT_TRUE(lock.IsLocked());
    EXPECT_FALSE(IsFree(lock));
    std::thread([&lock] { EXPECT_TRUE(Unlock(lock)); }).join();
    EXPECT_FALSE(IsFree(lock)) << "released by a thread that does not hold it";
    EXPECT_TRUE(Unlock(lock));
    EXPECT_FALSE(lock.IsLocked());
    EXPECT_TRUE(IsFree(lock));
}

TEST(CXCriticalSectionThreads, OneThreadIsInsideAtATime)
{
    CXCriticalSection lock;
    int plain = 0;
    OnThreads(4, [&](int) {
        for (int i = 0; i < 5000; ++i)
        {
            const tev::LockGuard outer(lock);
            Lock(lock);
            ++plain;
            Unlock(lock);
            ++plain;
        }
    });
    EXPECT_EQ(plain, 40000);
    EXPECT_FALSE(lock.IsLocked());
}

// A thread that was woken to take the lock may be suspended or killed before it does so.
TEST(CXCriticalSectionThreads, AnotherTakesItWhereTheOneThatWasWokenDoesNot)
{
    tev::platform::SystemLock system;
    CXCriticalSection section;
    const struct
    {
        std::function<void()> take;
        std::function<void()> release;
        const void* state;
    } cases[] = {
        {[&system] { system.lock(); }, [&system] { system.unlock(); }, &system},
        {[&section] { Lock(section); }, [&section] { Unlock(section); },
         reinterpret_cast<const char*>(&section) + sizeof(void*)},
    };
    for (const auto& c : cases)
    {
        const auto& state = *static_cast<const std::atomic<std::uint32_t>*>(c.state);
        c.take();
        const std::uint32_t held = state;
        EXPECT_NE(held, 0u);
        std::atomic<unsigned __int64> gone{0};
        std::thread woken([&] {
            gone = CXThread::GetCurrentThreadID();
            tev::platform::WaitWhile(state, held);
        });
        EXPECT_TRUE(Eventually([&gone] {
            std::string line;
            std::ifstream stat("/proc/self/task/" + std::to_string(gone) + "/stat");
            return gone != 0 && std::getline(stat, line) && line.find(") S ") != std::string::npos;
        }));
        std::atomic<bool> isTaken{false};
        std::thread next([&] {
            c.take();
            isTaken = true;
            c.release();
        });
        EXPECT_TRUE(Eventually([&] { return state != held; })) << "the next one waits";
        c.release();
        EXPECT_TRUE(Eventually([&isTaken] { return isTaken.load(); }));
        tev::platform::WakeAll(state);
        woken.join();
        next.join();
    }
}

// The last thread that leaves destroys the object with its lock, while the one before may still be inside Unlock.
TEST(CXCriticalSectionThreads, MayBeDestroyedByTheNextOwner)
{
    struct Shared
    {
        CXCriticalSection lock;
        int users = 2;
    };
    for (int round = 0; round < 300; ++round)
    {
        auto* const shared = new Shared;
        OnThreads(2, [shared](int) {
            shared->lock.Lock();
            const bool last = --shared->users == 0;
            shared->lock.Unlock();
            if (last)
                delete shared;
        });
    }
}

/// The state and the owner lie in different cache lines, so that another processor can see one changed before the other.
struct alignas(64) SplitLock
{
    char before[64 - sizeof(void*) - 2 * sizeof(std::uint32_t)];
    CXCriticalSection lock;
    std::atomic<int> inside{0};

    bool EnterAlone() { return inside.fetch_add(1) == 0; }
    void Leave()
    {
        inside.fetch_sub(1);
        Unlock(lock);
    }
};

// A lock that the thread that forked releases in the child may be taken by one new thread at that moment, not by two.
TEST(CXCriticalSection, OneThreadIsInsideAtATimeAfterTheOwnerForked)
{
    if (kIsSanitized)
        GTEST_SKIP() << kNoBusyFork;
    constexpr unsigned kLocks = 6000; // each is held since before the fork only once
    std::vector<SplitLock> locks(kLocks);
    for (SplitLock& each : locks)
        Lock(each.lock);
    EXPECT_EQ(ResultInChild([&locks] {
                  std::atomic<bool> isAlone{true};
                  std::atomic<unsigned> begun{0};
                  std::atomic<unsigned> taken{0};
                  std::atomic<unsigned> tried{0};
                  std::thread other([&] {
                      for (unsigned i = 0; i < kLocks; ++i)
                      {
                          SplitLock& each = locks[i];
                          begun = i + 1;
                          bool isTaken = i % 2 == 0 && Lock(each.lock);
                          while (!isTaken)
                              isTaken = TryLock(each.lock);
                          isAlone = each.EnterAlone() && isAlone;
                          taken = i + 1;
                          while (tried != i + 1)
                              std::this_thread::yield();
                          each.Leave();
                      }
                  });
                  for (unsigned i = 0; i < kLocks; ++i)
                  {
                      SplitLock& each = locks[i];
                      while (begun != i + 1)
                          std::this_thread::yield();
                      // Some last as long as a thread waits before it goes to sleep.
                      for (unsigned pause = 0; pause < i % 700; ++pause)
                          tev::platform::PauseProcessor();
                      Unlock(each.lock);
                      while (taken != i + 1)
                          std::this_thread::yield();
                      if (TryLock(each.lock))
                      {
                          isAlone = each.EnterAlone() && isAlone;
                          each.Leave();
                      }
                      tried = i + 1;
                  }
                  other.join();
                  return isAlone ? 0 : 1;
              }),
              0);
    for (SplitLock& each : locks)
        Unlock(each.lock);
}

TEST(CXSingleLockThreads, HoldsTheAttachedLockAtMostOnce)
{
    CXCriticalSection first;
    CXCriticalSection second;
    {
        CXSingleLock holder;
        EXPECT_TRUE(holder.Unlock()) << "nothing attached";
        holder.Attach(nullptr);
        holder.Attach(&first);
        EXPECT_FALSE(IsFree(first));
        holder.Lock();
        holder.Attach(nullptr);
        EXPECT_FALSE(IsFree(first));
        holder.Attach(&first);
        EXPECT_FALSE(IsFree(first)) << "held before: held again";
        EXPECT_TRUE(holder.Unlock());
        EXPECT_TRUE(IsFree(first)) << "however often it was locked";
        EXPECT_TRUE(holder.Unlock());

        holder.Attach(&first);
        EXPECT_FALSE(first.IsLocked()) << "attached already, and not held";
        EXPECT_TRUE(holder.Lock());
        holder.Attach(&second);
        EXPECT_TRUE(IsFree(first));
        EXPECT_FALSE(IsFree(second));
    }
    EXPECT_TRUE(IsFree(second));
    {
        const CXSingleLock none(nullptr, true);
        CXSingleLock later(&first, false);
        EXPECT_TRUE(IsFree(first));
        EXPECT_TRUE(later.Lock());
        const CXSingleLock now(&first, true);
    }
    EXPECT_TRUE(IsFree(first));
}
} // namespace
