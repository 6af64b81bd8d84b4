// Threads of a function whose object is deleted: at once, while they run, while they are suspended, after an exception.

#include "objects/ThreadException.h"
#include "tests/support/CountedException.h"
#include "tests/support/Eventually.h"
#include "tests/threads/ThreadFlags.h"
#include "threads/CXThread.h"

namespace
{
using namespace tev::test;

std::unique_ptr<CXThread> BeginOwned(bool (*run)(void*), void* data = nullptr)
{
    return std::unique_ptr<CXThread>(CXThread::BeginThread(run, data, xThreadPriorityNormal, kOwned, 0));
}

TEST(CXThread, AnExceptionThatIsNotTakenIsDeletedWithItsThread)
{
    static std::atomic<int> begun;
    begun = 0;
    const auto end = [](void*) -> bool {
        ++begun;
        XThrow<CountedException>();
    };
    auto owned = BeginOwned(end);
    ASSERT_TRUE(owned != nullptr && owned->WaitForEnd(kLongTimeMs));
    EXPECT_EQ(CountedException::s_living, 1);
    owned.reset();
    EXPECT_EQ(CountedException::s_living, 0);
    ASSERT_NE(CXThread::BeginThread(end, nullptr, xThreadPriorityNormal, 0, 0), nullptr);
    EXPECT_TRUE(Eventually([] { return begun == 2 && CountedException::s_living == 0; })) << "with auto-delete";
}

TEST(CXThread, RunsItsFunctionToTheEndWithoutItsObject)
{
    struct State
    {
        std::atomic<bool> started{false};
        std::atomic<bool> deleted{false};
        std::atomic<bool> finished{false};
    } state;
    const auto run = [](void* data) {
        State& shared = *static_cast<State*>(data);
        shared.started = true;
        const bool seen = Eventually([&shared] { return shared.deleted.load(); });
        shared.finished = true;
        return seen;
    };
    auto thread = BeginOwned(run, &state);
    ASSERT_TRUE(Eventually([&state] { return state.started.load(); }));
    thread.reset();
    state.deleted = true;
    EXPECT_TRUE(Eventually([&state] { return state.finished.load(); }));
}

TEST(CXThread, RunsItsFunctionAlsoWhenItsObjectIsDeletedAtOnce)
{
    constexpr unsigned kRounds = 300;
    static std::atomic<unsigned> ran;
    ran = 0;
    const auto count = [](void*) { return ++ran != 0; };
    for (unsigned i = 0; i < kRounds; ++i)
        BeginOwned(count);
    EXPECT_TRUE(Eventually([] { return ran == kRounds; })) << ran;
}

TEST(CXThread, RunsItsFunctionOnWhenItsObjectIsDeletedWhileSuspended)
{
    static std::atomic<unsigned> count;
    static std::atomic<bool> stop;
    count = 0;
    stop = false;
    auto thread = BeginOwned([](void*) {
        for (; !stop; ++count)
            CXThread::SleepCurrentThread(0);
        return true;
    });
    EXPECT_TRUE(Eventually([] { return count > 0; }));
    thread->SuspendThread();
    thread->SuspendThread();
    const unsigned before = count;
    thread.reset();
    EXPECT_TRUE(Eventually([before] { return count > before; }));
    stop = true;
}

TEST(CXThread, IsDeletedAlsoWhileItsSuspendedFunctionHoldsItsLock)
{
    static std::atomic<CXThread*> itself;
    static std::atomic<bool> holdsIt;
    static std::atomic<bool> mayRelease;
    auto thread = BeginOwned([](void*) {
        Eventually([] { return itself != nullptr; });
        const CXThreadLock lock(*itself);
        holdsIt = true;
        return Eventually([] { return mayRelease.load(); });
    });
    itself = thread.get();
    EXPECT_TRUE(Eventually([] { return holdsIt.load(); }));
    thread->SuspendThread();
    mayRelease = true;
    thread.reset(); // which waits for the lock
}
} // namespace
