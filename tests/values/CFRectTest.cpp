#include "values/CFRect.h"

#include "tests/support/Testing.h"

namespace
{

TEST(CFRect, ConversionsToIntegersRoundAsDocumented)
{
    const struct
    {
        float m_value;
        int m_plusHalf; // sizes
        int m_rounded;  // points and rectangles
    } cases[] = {
        {0.0F, 0, 0},
        {1.5F, 2, 2},
        {2.5F, 3, 3},
        {1.49F, 1, 1},
        {-0.5F, 0, -1},
        {-1.5F, -1, -2},
        {-1.7F, -1, -2},
        {0.49999997F, 0, 0}, // in single precision the sum would be 1
        {8388609.0F, 8388609, 8388609},
        {3e9F, INT_MAX, INT_MAX},
        {-3e9F, INT_MIN, INT_MIN},
        {INFINITY, INT_MAX, INT_MAX},
        {-INFINITY, INT_MIN, INT_MIN},
        {NAN, 0, 0},
    };
    for (const auto& [value, plusHalf, rounded] : cases)
    {
        SCOPED_TRACE(value);
        EXPECT_EQ(CXPoint(CFPoint(value, 1)), CXPoint(rounded, 1));
        EXPECT_EQ(CXPoint(CFPoint(1, value)), CXPoint(1, rounded));
        EXPECT_EQ(static_cast<CXSize>(CFSize(1, value)), CXSize(1, plusHalf));
        EXPECT_TRUE(CXRect(CFRect(value, 1, 2, value)) == CXRect(rounded, 2, 1, rounded));
    }
    EXPECT_TRUE(CXRect(CFRect(-0.5F, 2.5F, 1.49F, -1.5F)) == CXRect(-1, 1, 3, -2));
    EXPECT_TRUE(CFRect(CXRect(1, 2, 3, 4)) == CFRect(1, 3, 2, 4));
    EXPECT_FALSE(CFRect(CXRect(1, 2, 3, 4)) != CFRect(1, 3, 2, 4));
    for (const CFRect& other : {CFRect(0, 3, 2, 4), CFRect(1, 0, 2, 4), CFRect(1, 3, 0, 4), CFRect(1, 3, 2, NAN)})
        EXPECT_TRUE(CFRect(1, 3, 2, 4) != other);
    EXPECT_EQ(CXPoint(CFPoint(CXPoint(-3, 4))), CXPoint(-3, 4));
}

TEST(CFRect, SizesComputeByComponent)
{
    const auto expectSize = [](const CFSize& size, float cx, float cy) {
        EXPECT_EQ(size.cx, cx);
        EXPECT_EQ(size.cy, cy);
    };
    expectSize(CFSize(1, 2) + CFSize(10, 20), 11, 22);
    expectSize(CFSize(1, 2) - CFSize(10, 20), -9, -18);
    expectSize(CFSize(1, 2) * CFSize(10, 20), 10, 40);
    expectSize(CFSize(1, 2) / CFSize(2, 8), 0.5F, 0.25F);
    expectSize(CFSize(1, 2) * 3, 3, 6);
    expectSize(CFSize(1, 2) / 2, 0.5F, 1);
    expectSize(CFSize(CXRect(1, 2, 11, 22)), 10, 20);
    EXPECT_EQ(CFPoint(CFSize(3, 4)).y, 4.0F);
    EXPECT_EQ(CFSize(3, 4).Length(), 0.0);
    EXPECT_TRUE(CFRect(1, 2, 3, 4) * CFSize(10, 100) == CFRect(10, 20, 300, 400));
    EXPECT_TRUE(CFRect(1, 2, 3, 4) / CFSize(2, 4) == CFRect(0.5F, 1, 0.75F, 1));
    EXPECT_TRUE(CFRect(1, 2, 3, 4) * 2 == CFRect(2, 4, 6, 8));
}

TEST(CFRect, QueriesKeepTheirSense)
{
    EXPECT_TRUE(CFRect(0, 10, 0, 10).IsEmpty());
    EXPECT_FALSE(CFRect(0, 0, 0, 10).IsEmpty());
    EXPECT_FALSE(CFRect(10, 0, 0, 10).IsEmpty());
    EXPECT_TRUE(CFRect().IsNull());
    EXPECT_TRUE(CFRect(-0.0F, 0, 0, 0).IsNull());
    EXPECT_FALSE(CFRect(0, 0, 0, 1).IsNull());
    EXPECT_TRUE(CFRect(1, 1, 2, 2).IsNormalized());
    EXPECT_FALSE(CFRect(2, 1, 2, 2).IsNormalized());
    EXPECT_FALSE(CFRect(1, 2, 3, 2).IsNormalized());
    EXPECT_EQ(CFRect(1, 4, 2, 9).Width(), 3.0F);
    EXPECT_EQ(CFRect(1, 4, 2, 9).Height(), 7.0F);
}

TEST(CFRect, IntersectionsTouchAndStopHalfway)
{
    const CFRect before(91, 92, 93, 94);
    const std::tuple<CFRect, CFRect, bool, CFRect> cases[] = {
        {{0, 10, 0, 10}, {5, 15, -5, 5}, true, {5, 10, 0, 5}},
        {{0, 10, 0, 10}, {2, 3, 4, 5}, true, {2, 3, 4, 5}},
        {{2, 3, 4, 5}, {0, 10, 0, 10}, true, {2, 3, 4, 5}},
        {{0, 10, 0, 10}, {10, 20, 10, 20}, true, {10, 10, 10, 10}},
        {{0, 10, 0, 10}, {11, 20, 0, 10}, false, before},
        {{0, 10, 0, 10}, {5, 20, 11, 12}, false, {5, 10, 93, 94}},
        // Right of left: the left edge is found, the right one not.
        {{3, 1, 0, 10}, {2, 5, 0, 10}, false, {3, 92, 93, 94}},
        {{0, 10, 8, 2}, {0, 10, 7, 9}, false, {0, 10, 8, 94}},
        {{NAN, 10, 0, 10}, {0, 10, 0, 10}, false, before},
    };
    for (const auto& [a, b, overlap, expected] : cases)
    {
        CFRect result = before;
        EXPECT_EQ(result.IntersectRect(a, b), overlap);
        EXPECT_TRUE(result == expected) << result.left << ' ' << result.right << ' ' << result.top << ' '
                                        << result.bottom;
        if (overlap)
        {
            result = a;
            EXPECT_TRUE(result.IntersectRect(result, b) && result == expected);
        }
    }
}
} // namespace
