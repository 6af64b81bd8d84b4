#include "platform/ThreadLocks.h"

#include "tests/support/Testing.h"

// What keeps a thread from being stopped and ended is the weight; CCustomThread's tests hold that it does.
TEST(SystemLock, WeighsAsMuchAsALibraryLockWhileItIsHeld)
{
    using namespace tev::platform;
    SystemLock lock;
    const auto before = t_threadLocks.held.load();
    lock.lock();
    EXPECT_EQ(t_threadLocks.held, before + kLibraryLockWeight);
    std::thread waiting([&lock] {
        lock.lock();
        EXPECT_EQ(t_threadLocks.held, kLibraryLockWeight);
        lock.unlock();
        EXPECT_EQ(t_threadLocks.held, 0u);
    });
    lock.unlock();
    EXPECT_EQ(t_threadLocks.held, before);
    waiting.join();
}
