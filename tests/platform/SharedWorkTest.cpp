#include "platform/SharedWork.h"

#include "tests/support/Testing.h"

TEST(SharedWork, OneWhoseOwnerWasEndedIsReleasedWhenTheLastHelperHasLeft)
{
    using tev::platform::SharedWork;
    SharedWork outer;
    SharedWork inner;
    outer.Begin();
    inner.Begin();
    EXPECT_TRUE(outer.Enter());
    EXPECT_FALSE(SharedWork::IsOwnerEnding());
    EXPECT_FALSE(SharedWork::EndAll()) << "a helper is left";
    EXPECT_TRUE(outer.IsEnding() && inner.IsEnding() && SharedWork::IsOwnerEnding());
    EXPECT_FALSE(outer.Enter()) << "no helper begins any more";
    EXPECT_FALSE(inner.IsAbandoned()) << "the owner may still come back";
    SharedWork::AbandonAll();
    EXPECT_TRUE(inner.IsAbandoned());
    EXPECT_FALSE(outer.IsAbandoned());
    outer.Leave();
    EXPECT_TRUE(outer.IsAbandoned() && SharedWork::EndAll());
    inner.End();
    outer.End();
    EXPECT_FALSE(SharedWork::IsOwnerEnding()) << "neither work is the thread's any more";
}
