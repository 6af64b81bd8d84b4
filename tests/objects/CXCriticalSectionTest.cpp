#include "objects/CXSingleLock.h"
#include "platform/AddressWait.h"
#include "platform/ThreadLocks.h"
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
