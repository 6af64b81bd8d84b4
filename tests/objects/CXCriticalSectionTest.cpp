#include "objects/CXSingleLock.h"
#include "tests/support/OnThreads.h"
#include "tests/support/Testing.h"

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
