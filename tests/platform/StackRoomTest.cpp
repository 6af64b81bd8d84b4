#include "platform/StackRoom.h"

#include "tests/support/FailingAllocations.h"
#include "tests/support/Sanitized.h"
#include "tests/support/Testing.h"

namespace
{
using namespace tev::test;

/// How many frames of a KiB there is room for, at most `most`.
int Depth(int most)
{
    volatile char frame[1024];
    frame[0] = static_cast<char>(most);
    return most == 0 || !tev::platform::HasStackRoom() ? 0 : 1 + Depth(most - 1) + (frame[0] & 0);
}

TEST(StackRoom, EndsBeforeTheStackAlsoWhereItsSizeCannotBeFound)
{
    if (kIsSanitized)
        GTEST_SKIP() << "a sanitizer keeps frames elsewhere and allocates by itself";
    constexpr int kMost = 20000; // twice what the usual stack has room for
    int known = 0;
    int unknown = 0;
    int again = 0;
    std::thread([&known] { known = Depth(kMost); }).join();
    std::thread([&] {
        FailingAllocations failing(1, true);
        failing.Run([&unknown] { unknown = Depth(kMost); });
        again = Depth(kMost);
    }).join();
    EXPECT_GT(known, 500);
    EXPECT_LT(known, kMost);
    EXPECT_GT(unknown, 20);
    EXPECT_LT(unknown, 200);
    EXPECT_GT(again, 500) << "with memory it is found";
}
} // namespace
