#include "arrays/CXArray.h"
#include "maps/CHashMap.h"
#include "maps/CHashTable.h"
#include "maps/CIntMap.h"
#include "tests/support/FailingAllocations.h"
#include "tests/support/PrintText.h"
#include "tests/support/Tracked.h"

// How long entries live, and what happens to them where memory is short or an element throws.

namespace
{
using namespace tev::test;

using NarrowMap = CHashMap<CXTString<char>, const CXTString<char>&, CXTString<char>>;

template <class ELEMENT>
class CHashMapOf : public testing::Test
{
};

using ElementTypes = testing::Types<Tracked<true>, Tracked<false>>;
TYPED_TEST_SUITE(CHashMapOf, ElementTypes, );

TYPED_TEST(CHashMapOf, EntriesEndWhenTheyAreRemoved)
{
    using Map = CHashMap<int, int, TypeParam>;
    const auto live = [] { return TypeParam::s_live; };
    {
        Map map;
        for (int key = 0; key < 500; ++key)
        {
            map.Insert(key, key);
            ASSERT_EQ(live(), key + 1);
        }
        map.Insert2(7, 70);
        EXPECT_EQ(map.Find(7)->Value(), 70);
        for (int key = 0; key < 100; ++key)
            map.Remove(key, key % 2 == 0);
        EXPECT_EQ(live(), 400);

        Map copy = map;
        EXPECT_EQ(live(), 800);
        const Map taken = std::move(copy);
        EXPECT_EQ(live(), 800);
        EXPECT_FALSE(copy.IsFound(200));
        EXPECT_EQ(copy.Insert(1, 1), 1);
        EXPECT_EQ(copy.GetHashTableSize(), 23U);
        EXPECT_EQ(live(), 801);
        copy = std::move(map);
        EXPECT_EQ(live(), 800);
        copy.Minimize();
        EXPECT_EQ(live(), 800);
        copy.Clear();
        EXPECT_EQ(live(), 400);
        copy = taken;
        copy.Free();
        EXPECT_EQ(live(), 400);
        for (int key = 0; key < 500; ++key)
            ASSERT_EQ(taken.IsFound(key), key >= 100);
    }
    EXPECT_EQ(live(), 0);
}

TYPED_TEST(CHashMapOf, AnInsertionThatThrowsChangesNothing)
{
    using Map = CHashMap<int, int, TypeParam>;
    // The eleventh entry rebuilds the table, so that later copies throw as well where elements are not moved.
    Map full;
    for (int key = 0; key < 10; ++key)
        full.Insert(key, key);
    bool inserted = false;
    for (int throwIn = 1; !inserted; ++throwIn)
    {
        Map map = full;
        TypeParam::s_throwIn = throwIn;
        try
        {
            inserted = map.Insert2(11, 11) == 1;
        }
        catch (const std::runtime_error&)
        {
            EXPECT_EQ(map.GetCount(), 10U);
            EXPECT_EQ(map.GetHashTableSize(), 23U);
            EXPECT_FALSE(map.IsFound(11));
        }
        TypeParam::s_throwIn = 0;
        for (int key = 0; key < 10; ++key)
            ASSERT_EQ(map.Find(key)->Value(), key);
    }
    Map copied;
    TypeParam::s_throwIn = 5;
    EXPECT_THROW(copied = full, std::runtime_error);
    TypeParam::s_throwIn = 0;
    EXPECT_TRUE(copied.IsEmpty());
    full.Free();
    EXPECT_EQ(TypeParam::s_live, 0);
}

/// No machine has the memory for a table of these, and no system the addresses.
struct Giant
{
    char m_bytes[std::size_t(1) << 45];
};

TEST(CHashMap, AMapWithoutMemoryFindsNothingAndRefuses)
{
    CHashMap<int, int, Giant> map;
    EXPECT_EQ(map.GetHashTableSize(), 23U);
    EXPECT_EQ(map.Find(0), nullptr);
    EXPECT_EQ(map.Remove(0, true), 0);
    EXPECT_EQ(map.GetFirst(), ~0u);
    map.Clear();
    map.Free();
    EXPECT_FALSE(map.Minimize());
    EXPECT_FALSE(map.InitHashTable(50));
    EXPECT_EQ(map.GetHashTableSize(), 53U);
    CHashMap<int, int, Giant> copy(map);
    copy.Merge(map);
    copy = std::move(map);
    EXPECT_TRUE(copy.IsEmpty());
}

TEST(CHashMap, SizesBeyond32BitsAreRefused)
{
    CIntMap map;
    map.Insert(1, 2);
    for (const unsigned count : {0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFEU, 0xFFFFFFFFU})
        EXPECT_FALSE(map.InitHashTable(count)) << count;
    EXPECT_EQ(*map.Find(1), 2);
    EXPECT_EQ(CIntMap(0xFFFFFFFF).GetHashTableSize(), 23U);
    // What a full table of the largest sizes would need.
    EXPECT_EQ(tev::HashSizeRebuilt(4294967291U, 2147483645, 2147483645), 0U);
    EXPECT_EQ(tev::HashSizeRebuilt(4294967291U, 2147483645, 1), 23U);
}

TEST(CHashMap, WithoutMemoryNewKeysAreRefusedAndNothingIsLost)
{
    const auto filled = [](int count) {
        NarrowMap map;
        CXTString<char> text;
        for (int key = 0; key < count; ++key)
        {
            text.Format("a text that is too long for a buffer within the object: %d", key);
            map.Insert(text, text);
        }
        return map;
    };
    const std::function<void(NarrowMap&)> operations[] = {
        [](NarrowMap& map) { map.Insert("new", "new"); },
        [](NarrowMap& map) { map.Insert2("new", "new"); },
        [&](NarrowMap& map) { map.Merge(filled(200)); },
    };
    const NarrowMap before = filled(10); // the next one makes the table grow
    for (const auto& operation : operations)
    {
        const unsigned allocations = FailEachAllocation([&](FailingAllocations& failing) {
            NarrowMap map = before;
            failing.Run([&] { operation(map); });
            for (const auto& [key, value] : before)
                EXPECT_EQ(*map.Find(key), value);
            for (const auto& [key, value] : map)
                EXPECT_EQ(value, key);
            EXPECT_EQ(map.Insert("later", "later"), 1);
        });
        EXPECT_NE(allocations, 0U) << &operation - operations;
    }

    // The entry that fills half of the table is in, the next one needs a larger table.
    CIntMap map;
    for (int key = 0; key < 10; ++key)
        map.Insert(key, key);
    for (const int key : {10, 11})
    {
        FailingAllocations failing(1);
        failing.Run([&] { EXPECT_EQ(map.Insert(key, key), key == 10 ? 1 : 0); });
        EXPECT_TRUE(failing.HasFailed());
        EXPECT_EQ(map.GetHashTableSize(), 23U);
    }
    EXPECT_EQ(map.GetCount(), 11U);
    EXPECT_EQ(map.Remove(5, true), 1);
    EXPECT_EQ(map.Insert(11, 11), 1);
    EXPECT_EQ(map.GetHashTableSize(), 97U);
}
} // namespace
