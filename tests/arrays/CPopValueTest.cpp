#include "arrays/CPopValue.h"

#include "tests/support/Testing.h"

namespace
{
TEST(CPopValue, NestsAndCopiesLowerOnceMore)
{
    int depth = INT_MAX;
    {
        const CPopValue wrapped(depth);
        EXPECT_EQ(depth, INT_MIN);
    }
    EXPECT_EQ(depth, INT_MAX);

    unsigned count = 5;
    {
        const CPopValue outer(count);
        {
            const CPopValue inner(count);
            EXPECT_EQ(count, 7U);
        }
        EXPECT_EQ(count, 6U);
        {
            const CPopValue copy(outer);
            EXPECT_EQ(count, 6U);
        }
        EXPECT_EQ(count, 5U);
    }
    EXPECT_EQ(count, 4U);
}
} // namespace
