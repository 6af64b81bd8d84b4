#include "values/CXRect.h"

#include "tests/support/FileFailure.h"

void PrintTo(const CXRect& r, std::ostream* out)
{
    *out << '(' << r.left << ", " << r.top << ", " << r.right << ", " << r.bottom << ')';
}

namespace
{
using namespace tev::test;

static_assert(sizeof(CXPoint) == 8 && sizeof(CXSize) == 8 && sizeof(CXRect) == 16, "the layout of the structures");

int LeftByAddress(const tagRECT* rectangle)
{
    return rectangle->left;
}

TEST(CXRect, PointsAndSizesComputeByComponent)
{
    EXPECT_EQ(CXPoint(1, 2) + CXPoint(10, 20), CXPoint(11, 22));
    EXPECT_EQ(CXPoint(1, 2) - CXSize(10, 20), CXPoint(-9, -18));
    EXPECT_EQ(-CXPoint(INT_MIN, 5), CXPoint(INT_MIN, -5));
    EXPECT_EQ(CXPoint(INT_MAX, 0) + CXPoint(1, 0), CXPoint(INT_MIN, 0));
    EXPECT_EQ(CXPoint(tagPOINTS{-1, 300}), CXPoint(-1, 300));
    EXPECT_EQ(CXPoint(CXSize(3, 4)), CXPoint(3, 4));
    EXPECT_NE(CXPoint(1, 2), CXPoint(1, 3));
    EXPECT_TRUE((tagPOINT{1, 2} == CXPoint(1, 2) && tagSIZE{1, 2} != CXSize(3, 2) && tagRECT{} == CXRect()));
    EXPECT_EQ(CXSize(1, 2) - CXSize(10, 20), CXSize(-9, -18));
    EXPECT_EQ(CXSize(1, 2) + CXPoint(10, 20), CXPoint(11, 22));
    EXPECT_EQ(CXSize(1, 2) - CXPoint(10, 20), CXPoint(-9, -18));
    EXPECT_EQ(-CXSize(1, 2), CXSize(-1, -2));
    EXPECT_EQ(CXSize(3, 4).Mean(), 3);
    EXPECT_EQ(CXSize(-3, -4).Mean(), -3);
    EXPECT_EQ(CXSize(INT_MAX, 1).Mean(), INT_MIN / 2);

    const CXRect rect(1, 2, 3, 4);
    EXPECT_EQ(CXPoint(10, 20) + rect, CXRect(11, 22, 13, 24));
    EXPECT_EQ(CXPoint(10, 20) - rect, CXRect(-9, -18, -7, -16));
    EXPECT_EQ(CXSize(10, 20) + rect, CXRect(11, 22, 13, 24));
    EXPECT_EQ(CXSize(10, 20) - rect, CXRect(-9, -18, -7, -16));
    EXPECT_EQ(rect + CXPoint(10, 20), CXRect(11, 22, 13, 24));
    EXPECT_EQ(rect - CXSize(10, 20), CXRect(-9, -18, -7, -16));
    EXPECT_EQ(rect + CXRect(10, 20, 30, 40), CXRect(-9, -18, 33, 44));
    EXPECT_EQ(rect - CXRect(10, 20, 30, 40), CXRect(11, 22, -27, -36));
}

TEST(CXRect, QueriesTruncateAndWrap)
{
    EXPECT_EQ(CXRect(-3, -3, 4, 4).CenterPoint(), CXPoint(0, 0));
    EXPECT_EQ(CXRect(-3, -3, 2, 2).CenterPoint(), CXPoint(0, 0));
    EXPECT_EQ(CXRect(INT_MAX, 0, INT_MAX, 7).CenterPoint(), CXPoint(-1, 3));
    EXPECT_EQ(CXRect(INT_MIN, 0, INT_MAX, 9).Size(), CXSize(-1, 9));
    EXPECT_FALSE(CXRect(INT_MIN, 0, INT_MAX, 9).IsRectEmpty());
    EXPECT_EQ(CXRect(CXPoint(1, 2), CXSize(10, 20)), CXRect(1, 2, 11, 22));
    EXPECT_EQ(CXRect(CXPoint(1, 2), CXPoint(10, 20)).BottomRight(), CXPoint(10, 20));
    EXPECT_TRUE(CXRect().IsRectNull());
    EXPECT_FALSE(CXRect(0, 0, 0, 1).IsRectNull());
    EXPECT_TRUE(CXRect(0, 0, 0, 1).IsRectEmpty());
    EXPECT_TRUE(CXRect(5, 0, 4, 1).IsRectEmpty());
    EXPECT_FALSE(CXRect(0, 0, 1, 1).IsRectEmpty());
    const std::pair<CXPoint, bool> points[] = {
        {{0, 0}, true}, {{9, 9}, true}, {{10, 5}, false}, {{5, 10}, false}, {{-1, 5}, false}};
    for (const auto& [point, inside] : points)
        EXPECT_EQ(CXRect(0, 0, 10, 10).PtInRect(point), inside) << point.x << ' ' << point.y;
}

TEST(CXRect, ChangesMoveTheEdgesTheyName)
{
    const auto changed = [](auto change) {
        CXRect rect(10, 20, 30, 40);
        EXPECT_TRUE(change(rect));
        return rect;
    };
    EXPECT_EQ(changed([](CXRect& r) { return r.InflateRect(1, 2); }), CXRect(9, 18, 31, 42));
    EXPECT_EQ(changed([](CXRect& r) { return r.InflateRect(1, 2, 3, 4); }), CXRect(9, 18, 33, 44));
    EXPECT_EQ(changed([](CXRect& r) { return r.InflateRect(CXRect(1, 2, 3, 4)); }), CXRect(9, 18, 33, 44));
    EXPECT_EQ(changed([](CXRect& r) { return r.InflateRect(CXSize(1, 2)); }), CXRect(9, 18, 31, 42));
    EXPECT_EQ(changed([](CXRect& r) { return r.DeflateRect(1, 2); }), CXRect(11, 22, 29, 38));
    EXPECT_EQ(changed([](CXRect& r) { return r.DeflateRect(1, 2, 3, 4); }), CXRect(11, 22, 27, 36));
    EXPECT_EQ(changed([](CXRect& r) { return r.DeflateRect(CXRect(1, 2, 3, 4)); }), CXRect(11, 22, 27, 36));
    EXPECT_EQ(changed([](CXRect& r) { return r.DeflateRect(CXSize(INT_MIN, 0)); }).left, INT_MIN + 10);
    EXPECT_EQ(changed([](CXRect& r) { return r.OffsetRect(-10, INT_MAX); }), CXRect(0, INT_MIN + 19, 20, INT_MIN + 39));
    EXPECT_EQ(changed([](CXRect& r) { return r.OffsetRect(CXSize(1, 2)); }), CXRect(11, 22, 31, 42));
    EXPECT_EQ(changed([](CXRect& r) { return r.OffsetRect(CXPoint(1, 2)); }), CXRect(11, 22, 31, 42));
    EXPECT_EQ(changed([](CXRect& r) { return r.SetRect(1, 2, 3, 4); }), CXRect(1, 2, 3, 4));
    EXPECT_EQ(changed([](CXRect& r) { return r.CopyRect(CXRect(1, 2, 0, 4)); }), CXRect(1, 2, 0, 4));
    EXPECT_EQ(changed([](CXRect& r) { return r.SetRectEmpty(); }), CXRect());
    CXRect rect(10, 20, 30, 40);
    static_cast<tagRECT*>(rect)->top = 7;
    EXPECT_EQ(rect, CXRect(10, 7, 30, 40));
    EXPECT_EQ(LeftByAddress(CXRect(5, 6, 7, 8)), 5);
}

TEST(CXRect, SetOperationsFollowTheSystem)
{
    const CXRect a(0, 0, 10, 10);
    const std::tuple<CXRect, CXRect, CXRect, CXRect> cases[] = {
        {{5, 5, 15, 15}, {5, 5, 10, 10}, {0, 0, 15, 15}, a},
        {{10, 0, 20, 10}, {}, {0, 0, 20, 10}, a},
        {{5, 5, 5, 50}, {}, a, a},
        {{20, 20, 4, 4}, {}, a, a},
        {{-5, -5, 15, 15}, a, {-5, -5, 15, 15}, {}},
        {a, a, a, {}},
        {{-5, -5, 4, 15}, {0, 0, 4, 10}, {-5, -5, 10, 15}, {4, 0, 10, 10}},
        {{6, 0, 10, 10}, {6, 0, 10, 10}, a, {0, 0, 6, 10}},
        {{0, 0, 10, 3}, {0, 0, 10, 3}, a, {0, 3, 10, 10}},
        {{-1, 7, 11, 99}, {0, 7, 10, 10}, {-1, 0, 11, 99}, {0, 0, 10, 7}},
        {{3, 0, 6, 10}, {3, 0, 6, 10}, a, a},
        {{0, 0, 5, 9}, {0, 0, 5, 9}, a, a},
    };
    for (const auto& [other, both, either, left] : cases)
    {
        SCOPED_TRACE(testing::PrintToString(other));
        EXPECT_EQ(a & other, both);
        EXPECT_EQ(other & a, both);
        EXPECT_EQ(a | other, either);
        CXRect rect = other;
        EXPECT_EQ(rect.UnionRect(a, rect), !either.IsRectEmpty());
        EXPECT_EQ(rect, either);
        rect = other;
        EXPECT_EQ(rect.SubtractRect(a, rect), !left.IsRectEmpty());
        EXPECT_EQ(rect, left);
        rect = a;
        EXPECT_EQ(rect.SubtractRect(rect, other), !left.IsRectEmpty());
        EXPECT_EQ(rect, left);
        EXPECT_EQ(rect.IntersectRect(a, other), !both.IsRectEmpty());
    }
    CXRect rect(1, 1, 2, 2);
    EXPECT_FALSE(rect.UnionRect(CXRect(5, 5, 5, 9), CXRect(9, 9, 8, 8)));
    EXPECT_TRUE(rect.IsRectNull());
    EXPECT_FALSE(rect.SubtractRect(CXRect(5, 5, 5, 9), a));
    EXPECT_TRUE(rect.IsRectNull());
}

TEST(CXRect, MulDivWrapsAndTruncates)
{
    EXPECT_EQ(CXRect(1, 1, 3, 3).MulDiv(3, 2), CXRect(1, 1, 4, 4));
    EXPECT_EQ(CXRect(-1, -3, 0x40000000, 7).MulDiv(3, 2), CXRect(-1, -4, -0x20000000, 10));
    EXPECT_EQ(CXRect(0x40000000, 5, 0, -5).MulDiv(2, -1), CXRect(INT_MIN, -10, 0, 10));
    EXPECT_EQ(Thrown([] { CXRect(1, 1, 1, 1).MulDiv(1, 0); }), kInvalidArgument);
}
} // namespace
