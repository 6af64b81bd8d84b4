#include "threads/ThreadRelations.h"

#include "tests/support/BusyFork.h"
#include "tests/support/FailingAllocations.h"
#include "tests/support/OnThreads.h"
#include "threads/CXThread.h"

namespace
{
using namespace tev::test;

/// The two kinds of marks, which behave alike.
struct Marks
{
    void (*set)(bool, unsigned __int64);
    bool (*has)(unsigned __int64);
};
constexpr Marks kMarks[] = {{&SetCancelThread, &ShouldCancelThread}, {&SetSilentThread, &IsSilentThread}};

TEST(ThreadRelations, MarksReachDescendants)
{
    for (const Marks& marks : kMarks)
    {
        EXPECT_FALSE(marks.has(1003) || marks.has(0));
        AttachThread(1002, 1001);
        AttachThread(1003, 1002);
        AttachThread(1001, 1001);
        marks.set(true, 1001);
        EXPECT_TRUE(marks.has(1001) && marks.has(1002) && marks.has(1003));
        EXPECT_FALSE(marks.has(1004));
        AttachThread(1003, 1004);
        EXPECT_FALSE(marks.has(1003)) << "another parent";
        DetachThread(1002);
        EXPECT_FALSE(marks.has(1002));
        marks.set(false, 1001);
        EXPECT_FALSE(marks.has(1001));
        DetachThread(1003);

        marks.set(true, 0);
        EXPECT_TRUE(marks.has(0) && marks.has(CXThread::GetCurrentThreadID()));
        std::thread([&marks] { EXPECT_FALSE(marks.has(0)); }).join();
        marks.set(false, CXThread::GetCurrentThreadID());
        EXPECT_FALSE(marks.has(0));
    }
}

TEST(ThreadRelations, AGuardTakesBackTheMarkThatItMade)
{
    {
        const CXSilentThread outer;
        {
            const CXSilentThread inner;
        }
        EXPECT_TRUE(IsSilentThread(0));
    }
    EXPECT_FALSE(IsSilentThread(0));
}

TEST(ThreadRelations, ChildrenAreListed)
{
    CXArray<unsigned __int64> children;
    children.Add(77);
    AttachThread(1502, 1501);
    AttachThread(1503, 1501);
    AttachThread(1504, 1503);
    EXPECT_EQ(GetChildThreads(1501, children), 2u);
    ASSERT_EQ(children.GetSize(), 2);
    EXPECT_EQ(children[0] + children[1], 3005u);
    for (const unsigned __int64 id : {1502, 1503, 1504})
        DetachThread(id);
    EXPECT_EQ(GetChildThreads(1501, children), 0u);
    EXPECT_EQ(children.GetSize(), 0);
}

TEST(ThreadRelations, CirclesHaveAnEnd)
{
    for (const Marks& marks : kMarks)
    {
        AttachThread(2001, 2002);
        AttachThread(2002, 2003);
        AttachThread(2003, 2001);
        AttachThread(2004, 2001);
        marks.set(true, 9999);
        EXPECT_FALSE(marks.has(2004));
        marks.set(true, 2003);
        EXPECT_TRUE(marks.has(2004) && marks.has(2001));
        for (const unsigned __int64 id : {2001, 2002, 2003, 2004})
            DetachThread(id);
        marks.set(false, 2003);
        marks.set(false, 9999);
    }
}

TEST(ThreadRelations, WithoutMemoryNothingIsLostInSilence)
{
    if (kIsSanitized)
        GTEST_SKIP() << kNoBusyFork;
    const std::function<void(unsigned __int64)> kRecording[] = {[](unsigned __int64 id) { AttachThread(id, 5000); },
                                                                [](unsigned __int64 id) { SetCancelThread(true, id); },
                                                                [](unsigned __int64 id) { SetSilentThread(true, id); }};
    const std::function<bool(unsigned __int64)> kAsking[] = {[](unsigned __int64 id) {
                                                                 CXArray<unsigned __int64> children;
                                                                 return GetChildThreads(5000, children) >= id - 5000;
                                                             },
                                                             ShouldCancelThread, IsSilentThread};
    for (std::size_t kind = 0; kind < std::size(kRecording); ++kind)
    {
        EXPECT_EQ(ResultInChild([&] {
                      FailingAllocations failing(1, true);
                      unsigned __int64 last = 5000;
                      const bool isDone = failing.Run([&] {
                          for (; last < 1000000; ++last)
                              kRecording[kind](last + 1);
                      });
                      for (unsigned __int64 id = last; id > 5000; --id)
                      {
                          if (!kAsking[kind](id))
                              return 1;
                      }
                      return isDone ? 2 : 0;
                  }),
                  0)
            << kind;
    }
}

TEST(ThreadRelations, DeletingAThreadObjectRemovesItsEntries)
{
    unsigned __int64 id = 0;
    {
        CXThread thread([](void*) { return true; }, nullptr);
        CXThread::BeginThread(&thread, xThreadPriorityNormal,
                              CXThread::kBeginWithoutAutoDelete | CXThread::kBeginSuspended, 0);
        id = thread.GetThreadID();
        AttachThread(id, 3001);
        SetCancelThread(true, id);
        SetSilentThread(true, id);
    }
    SetCancelThread(true, 3001);
    EXPECT_FALSE(ShouldCancelThread(id) || IsSilentThread(id));
    SetCancelThread(false, 3001);

    SetCancelThread(true, 0);
    SetSilentThread(true, 0);
    {
        const CXThread neverStarted(true);
    }
    EXPECT_FALSE(ShouldCancelThread(0) || IsSilentThread(0)) << "it has the identifier 0, the calling thread's";
}

TEST(ThreadRelations, AreSafeFromSeveralThreads)
{
    OnThreads(4, [](int number) {
        const auto seed = static_cast<unsigned __int64>(number + 1);
        for (unsigned __int64 i = 0; i < 500; ++i)
        {
            AttachThread(i % 7 + 1, i * seed % 7 + 1);
            SetCancelThread(i % 3 == 0, i % 5 + 1);
            static_cast<void>(ShouldCancelThread(i % 7 + 1));
            CXArray<unsigned __int64> children;
            GetChildThreads(i % 7 + 1, children);
            DetachThread(i * seed % 7 + 1);
        }
    });
    for (unsigned __int64 id = 1; id <= 7; ++id)
    {
        DetachThread(id);
        SetCancelThread(false, id);
    }
}
} // namespace
