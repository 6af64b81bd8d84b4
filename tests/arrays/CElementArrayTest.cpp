#include "arrays/CElementArray.h"

#include "tests/support/ArchiveTools.h"
#include "tests/support/PrintText.h"
#include "tests/support/TrackedElements.h"

namespace
{
using namespace tev::test;

TEST(CInstanciatedObject, TheLastOwnerEndsTheObject)
{
    auto* methods = new CXIntElements;
    EXPECT_EQ(methods->AddRef(), 2U);
    EXPECT_FALSE(methods->Delete());
    EXPECT_EQ(methods->GetRefCount(), 1U);
    methods->AddRef();
    auto* copy = new CXIntElements(*methods);
    EXPECT_EQ(copy->GetRefCount(), 2U);
    EXPECT_FALSE(copy->Delete());
    EXPECT_TRUE(DeleteMe(copy));
    CElementArray array(methods);
    {
        const std::unique_ptr<CElementArray> shared(array.Duplicate());
        EXPECT_EQ(methods->GetRefCount(), 3U);
    }
    EXPECT_FALSE(methods->Delete());
    EXPECT_EQ(methods->GetRefCount(), 1U);
    EXPECT_TRUE(DeleteMe(nullptr));
}

// How many elements live shows the capacity in construct mode, and what is in use or kept without it.
TEST(CElementArray, EachSlotIsConstructedAndDestructedInTurn)
{
    const int before = Element::s_live;
    {
        CElementArray array(new TrackedElements);
        const auto live = [&](int size, bool keepMemory, int growFactor = -1) {
            array.SetSize(size, keepMemory, growFactor);
            return Element::s_live - before;
        };
        const auto mode = [&](bool construct) {
            array.ConstructMode(construct);
            return Element::s_live - before;
        };
        EXPECT_EQ(live(1, false), 1);
        EXPECT_EQ(mode(true), 1);
        EXPECT_EQ(live(2, false), 5); // grown by 4
        EXPECT_EQ(live(6, false, -2), 10);
        EXPECT_EQ(live(11, false), 20);
        EXPECT_EQ(live(21, false, 7), 27);
        EXPECT_EQ(live(400, false, 0), 400);
        EXPECT_EQ(live(401, false), 450);
        EXPECT_EQ(live(10, false), 450);
        EXPECT_EQ(mode(false), 10);
        Fill(array, {1, 2, 3, 4, 5, 6});
        EXPECT_EQ(live(2, true), 6);
        EXPECT_EQ(live(4, true), 4);
        EXPECT_EQ(ValuesOf(array), (std::vector<int>{1, 2, 0, 0}));
        EXPECT_EQ(live(0, true), 4);
        EXPECT_EQ(mode(true), 9); // 4 came first, then 5 more
        array.SetSize(5);
        array.SetAt(3, Source(array, 33));
        EXPECT_EQ(live(2, true), 9);
        array.RemoveAt(0, 1);
        EXPECT_EQ(live(3, true), 9);
        EXPECT_EQ(ValuesOf(array), (std::vector<int>{0, 0, 0}));
        EXPECT_EQ(live(4, false), 9);
        EXPECT_EQ(ValueAt(array, 3), 33); // where construct mode kept it
        EXPECT_EQ(live(3, false), 9);
        EXPECT_EQ(live(4, false), 9);
        EXPECT_EQ(ValueAt(array, 3), 0); // a new one
        array.FreeExtra();
        EXPECT_EQ(Element::s_live - before, 4);
        array.PreAllocate(12);
        EXPECT_EQ(Element::s_live - before, 12);
        EXPECT_EQ(array.GetSize(), 0);
        EXPECT_EQ(live(0, false), 0);
        EXPECT_EQ(live(2, true, 3), 3);
        array.SetMethods(new CXIntElements);
        EXPECT_EQ(Element::s_live, before);
        EXPECT_EQ(array.GetSizeOfElement(), 4U);
        EXPECT_EQ(array.SetGrowFactor(8), 0);
        EXPECT_EQ(array.SetGrowFactor(-2), 8);
        EXPECT_EQ(array.SetGrowFactor(0), 8);
        array.SetMethods(new TrackedElements);
        array.SetSize(3);
    }
    EXPECT_EQ(Element::s_live, before);
}

template <class KIND>
class CElementArrayOf : public testing::Test
{
};
using Kinds = testing::Types<CXIntElements, TrackedElements>;
TYPED_TEST_SUITE(CElementArrayOf, Kinds);

TYPED_TEST(CElementArrayOf, RandomUseMatchesAVector)
{
    const int before = Element::s_live;
    std::mt19937 random(31);
    for (int round = 0; round < 150; ++round)
    {
        CElementArray array(new TypeParam);
        std::vector<int> model;
        bool constructMode = false;
        // In construct mode slots show what they held before.
        const auto grown = [&](int sizeBefore) {
            const auto values = ValuesOf(array);
            model.resize(values.size());
            for (std::size_t i = sizeBefore; constructMode && i < values.size(); ++i)
                model[i] = values[i];
        };
        for (int step = 0; step < 120; ++step)
        {
            const auto size = static_cast<int>(model.size());
            const int at = static_cast<int>(random() % (size + 3));
            const int inside = size == 0 ? 0 : at % size;
            const int count = 1 + static_cast<int>(random() % 4);
            const bool flag = random() % 2 == 0;
            const Source value(array, step);
            const auto insert = [&](const std::vector<int>& values) {
                if (at > size)
                {
                    const auto all = ValuesOf(array);
                    model.insert(model.end(), all.begin() + size, all.begin() + at);
                }
                model.insert(model.begin() + at, values.begin(), values.end());
            };
            switch (random() % 12)
            {
            case 0:
                ASSERT_EQ(array.Add(value), size);
                model.push_back(step);
                break;
            case 1:
                if (size != 0)
                {
                    ASSERT_EQ(array.Add(array[inside]), size);
                    model.push_back(model[inside]);
                }
                break;
            case 2:
                array.SetAtGrow(at, value, static_cast<int>(random() % 6) - 2);
                grown(size);
                model[at] = step;
                break;
            case 3:
                array.InsertAt(at, value, count);
                insert(std::vector<int>(count, step));
                break;
            case 4:
                if (size != 0)
                {
                    array.InsertAt(at, array[inside], count);
                    insert(std::vector<int>(count, model[inside]));
                }
                break;
            case 5:
                if (size != 0 && size < 100)
                {
                    const std::unique_ptr<CElementArray> copy(array.Duplicate());
                    ASSERT_TRUE(array.InsertAt(at, flag ? copy.get() : &array));
                    insert(std::vector<int>(model));
                }
                break;
            case 6:
            case 7: {
                const int removed = std::min(count, size - inside);
                array.RemoveAt(inside, removed);
                model.erase(model.begin() + inside, model.begin() + inside + removed);
                break;
            }
            case 8:
                array.SetSize(at, flag);
                grown(size);
                break;
            case 9:
                array.ConstructMode(constructMode = flag);
                if (step % 3 == 0)
                    array.FreeExtra();
                break;
            case 10:
                if (size < 100)
                {
                    ASSERT_EQ(array.Append(array, flag), size);
                    model.insert(model.end(), model.begin(), model.begin() + size);
                }
                break;
            default:
                if (size != 0)
                {
                    const std::vector<int> old = model;
                    const int target = static_cast<int>(random() % size);
                    ASSERT_TRUE(array.Copy(target, inside, array));
                    model.resize(std::max(size, target + size - inside));
                    std::copy(old.begin() + inside, old.end(), model.begin() + target);
                }
            }
            ASSERT_EQ(ValuesOf(array), model) << "round " << round << ", step " << step;
        }
    }
    EXPECT_EQ(Element::s_live, before);
}

TYPED_TEST(CElementArrayOf, ReorderPutsElementsBothWays)
{
    CElementArray array(new TypeParam);
    const unsigned order[] = {2, 0, 1};
    Fill(array, {10, 20, 30});
    EXPECT_TRUE(array.Reorder(order, 3, false));
    EXPECT_EQ(ValuesOf(array), (std::vector<int>{30, 10, 20}));
    Fill(array, {10, 20, 30});
    EXPECT_TRUE(array.Reorder(order, 3, true));
    EXPECT_EQ(ValuesOf(array), (std::vector<int>{20, 30, 10}));
    for (const std::vector<unsigned>& wrong :
         {std::vector<unsigned>{0, 1}, {0, 1, 1}, {0, 1, 3}, {0, 1, 0xFFFFFFFF}, {}, {0, 1, 2, 3}})
    {
        for (const bool inverse : {false, true})
            EXPECT_FALSE(array.Reorder(wrong.data(), static_cast<unsigned>(wrong.size()), inverse));
    }
    EXPECT_EQ(ValuesOf(array), (std::vector<int>{20, 30, 10}));

    std::mt19937 random(41);
    for (unsigned size = 1; size < 40; ++size)
    {
        std::vector<unsigned> permutation(size);
        std::iota(permutation.begin(), permutation.end(), 0);
        std::shuffle(permutation.begin(), permutation.end(), random);
        std::vector<int> values(size);
        std::iota(values.begin(), values.end(), 100);
        for (const bool inverse : {false, true})
        {
            Fill(array, values);
            std::vector<int> model(size);
            for (unsigned i = 0; i < size; ++i)
                model[inverse ? permutation[i] : i] = values[inverse ? i : permutation[i]];
            ASSERT_TRUE(array.Reorder(permutation.data(), size, inverse));
            ASSERT_EQ(ValuesOf(array), model);
        }
    }
}
} // namespace
