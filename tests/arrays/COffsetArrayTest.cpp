#include "arrays/COffsetArray.h"

#include "tests/support/ArchiveTools.h"
#include "tests/support/FailingAllocations.h"

namespace
{
using namespace tev::test;

using Offset = unsigned __int64;
constexpr Offset kWide = 0x100000000;

struct OpenOffsetArray : COffsetArray
{
    using COffsetArray::COffsetArray;
    using COffsetArray::GetAllocatedSize;
    using COffsetArray::GetSizetSize;
    using COffsetArray::SplitArray;
};

std::vector<Offset> EntriesOf(const COffsetArray& array)
{
    std::vector<Offset> entries;
    for (unsigned i = 0; i < array.GetSize(); ++i)
        entries.push_back(array[i]);
    EXPECT_EQ(array.GetAt(array.GetSize()), 0U);
    std::vector<Offset> walked;
    for (const Offset entry : array)
        walked.push_back(entry);
    EXPECT_EQ(walked, entries);
    return entries;
}

TEST(COffsetArray, AWideValueMovesEverythingBehindIt)
{
    OpenOffsetArray array;
    array.SetSize(10, 0);
    for (unsigned i = 0; i < 10; ++i)
        array.SetAt(i, i + 1);
    EXPECT_EQ(array.GetAllocatedSize(), 40U);
    array.SetAt(5, kWide);
    EXPECT_EQ(EntriesOf(array), (std::vector<Offset>{1, 2, 3, 4, 5, kWide, 7, 8, 9, 10}));
    EXPECT_EQ(array.GetSizetSize(), 5U);
    EXPECT_EQ(array.GetAllocatedSize(), 60U);
    array.SetAt(10, 1);
    array.SplitArray(7);
    EXPECT_EQ(array.GetSizetSize(), 5U);
    array.SetAt(0, kWide);
    EXPECT_EQ(array.GetAllocatedSize(), 80U);
    EXPECT_EQ(EntriesOf(array), (std::vector<Offset>{kWide, 2, 3, 4, 5, kWide, 7, 8, 9, 10}));
    // Narrow again only when no wide entry is left.
    array.SetAt(0, 3);
    EXPECT_EQ(array.GetSizetSize(), 10U);
    for (unsigned left = 10; left != 0; --left)
        array.RemoveAt(left - 1);
    array.SetAtGrow(0, 3);
    EXPECT_EQ(array.GetSizetSize(), 0U);
}

TEST(COffsetArray, RoomGrowsByTheStep)
{
    OpenOffsetArray array;
    const auto room = [&](unsigned size, int growBy) {
        array.SetSize(size, growBy);
        return array.GetAllocatedSize() / 4;
    };
    EXPECT_EQ(room(1, 0), 1U);
    EXPECT_EQ(room(2, -1), 5U);
    EXPECT_EQ(room(100, -1), 100U);
    EXPECT_EQ(room(101, -5), 112U);
    EXPECT_EQ(room(10000, 0), 10000U);
    EXPECT_EQ(room(10001, 0), 11024U);
    EXPECT_EQ(room(11025, 3), 11027U);
    EXPECT_EQ(room(0, -1), 0U);
    EXPECT_EQ(room(2, -1), 3U);
    array.FreeExtra();
    EXPECT_EQ(array.GetAllocatedSize(), 8U);
    // With a wide part the same room is counted, and only that part grows.
    array.SetSize(3, -1);
    array.SplitArray(1);
    EXPECT_EQ(array.GetAllocatedSize(), 4U + 4 * 8);
    array.SetSize(6, 10);
    EXPECT_EQ(array.GetAllocatedSize(), 4U + 14 * 8);
    array.FreeExtra();
    EXPECT_EQ(array.GetAllocatedSize(), 4U + 5 * 8);
    array.SetSize(1, -1);
    EXPECT_EQ(array.GetAllocatedSize(), 4U);

    array.PreAllocate(7, 100);
    EXPECT_EQ(array.GetAllocatedSize(), 28U);
    EXPECT_EQ(array.GetSize(), 0U);
    array.SetAtGrow(7, kWide);
    EXPECT_EQ(array.GetAllocatedSize(), 28U + 100 * 8);
    EXPECT_EQ(EntriesOf(array), (std::vector<Offset>{0, 0, 0, 0, 0, 0, 0, kWide}));
    for (const auto& misuse :
         {+[](COffsetArray& a) { a.SetAtGrow(0xFFFFFFFF, 1); }, +[](COffsetArray& a) { a.PreAllocate(-1, 0); }})
    {
        EXPECT_EQ(Thrown([&] { misuse(array); }), kInvalidArgument);
        EXPECT_EQ(array.GetSize(), 8U);
    }
}

TEST(COffsetArray, RandomUseMatchesAVector)
{
    std::mt19937 random(21);
    for (int round = 0; round < 200; ++round)
    {
        OpenOffsetArray array;
        std::vector<Offset> model;
        for (int step = 0; step < 150; ++step)
        {
            const auto size = static_cast<unsigned>(model.size());
            const unsigned at = random() % (size + 3);
            const Offset value = random() % 12 == 0 ? kWide + random() : random();
            switch (random() % 8)
            {
            case 0:
            case 1:
                model.resize(std::max(size, at + 1));
                model[at] = value;
                array.SetAtGrow(at, value);
                break;
            case 2:
                array.SetAt(at, value);
                if (at < size)
                    model[at] = value;
                break;
            case 3:
            case 4:
                array.RemoveAt(at);
                if (at < size)
                    model.erase(model.begin() + at);
                break;
            case 5:
                array.SetSize(random() % 4 == 0 ? at : size + at % 5, static_cast<int>(random() % 8) - 2);
                model.resize(array.GetSize());
                break;
            case 6: {
                OpenOffsetArray copy(array);
                EXPECT_EQ(copy.GetAllocatedSize(), 4 * (size - copy.GetSizetSize()) + 8 * copy.GetSizetSize());
                array.SetSize(1);
                array = round % 2 == 0 ? copy : OpenOffsetArray(std::move(copy));
                break;
            }
            default:
                if (step % 2 == 0)
                    array.FreeExtra();
                else
                    ASSERT_EQ(ThrownByLoading(array, Stored(array)), kNothingThrown);
            }
            ASSERT_EQ(EntriesOf(array), model) << "round " << round << ", step " << step;
        }
    }
}

TEST(COffsetArray, TheArchiveHoldsBothParts)
{
    OpenOffsetArray array;
    array.SetSize(3, 9);
    array.SetAt(0, 0x01020304);
    array.SetAt(1, 0x8000000000000007);
    array.SetAt(2, 5);
    const Bytes golden = {3, 0, 0, 0, 1, 0, 0, 0,    9, 0, 0, 0, 4, 3, 2, 1, // size, split, step, the narrow part
                          7, 0, 0, 0, 0, 0, 0, 0x80, 5, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(Stored(array), golden);
    OpenOffsetArray loaded;
    loaded.SetSize(77, 1);
    EXPECT_EQ(ThrownByLoading(loaded, golden), kNothingThrown);
    EXPECT_EQ(EntriesOf(loaded), EntriesOf(array));
    EXPECT_EQ(loaded.GetAllocatedSize(), 20U);
    EXPECT_EQ(Stored(loaded), golden);
    // Large enough to come in several steps.
    array.SetSize(100000);
    array.SetAt(99999, kWide + 1);
    EXPECT_EQ(ThrownByLoading(loaded, Stored(array)), kNothingThrown);
    EXPECT_EQ(EntriesOf(loaded), EntriesOf(array));
    array.RemoveAll();
    EXPECT_EQ(Stored(array), (Bytes{0, 0, 0, 0, 0, 0, 0, 0, 9, 0, 0, 0}));
}

TEST(COffsetArray, HostileArchivesFail)
{
    const std::pair<Bytes, int> cases[] = {
        {{}, archiveEndOfFile},
        {{1, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0}, archiveEndOfFile},
        {{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0, 1, 2, 3, 4}, archiveEndOfFile},
        {{0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8}, archiveEndOfFile},
        {{2, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8}, archiveEndOfFile},
        {{1, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8}, archiveGeneric},
        {{0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 1, 2, 3, 4}, archiveGeneric},
    };
    for (const auto& [bytes, cause] : cases)
    {
        COffsetArray array;
        array.SetAtGrow(3, kWide);
        EXPECT_EQ(ThrownByLoading(array, bytes), cause) << bytes.size();
        EXPECT_EQ(array.GetSize(), 0U);
    }
    // A step that no array can have is the automatic one.
    COffsetArray array;
    EXPECT_EQ(ThrownByLoading(array, {1, 0, 0, 0, 1, 0, 0, 0, 0xFE, 0xFF, 0xFF, 0xFF, 1, 2, 3, 4}), kNothingThrown);
    EXPECT_EQ(Stored(array), (Bytes{1, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 1, 2, 3, 4}));
}

TEST(COffsetArray, WithoutMemoryItStaysAsItWas)
{
    COffsetArray narrow;
    for (unsigned i = 0; i < 8; ++i)
        narrow.SetAtGrow(i, i * 3);
    narrow.FreeExtra();
    COffsetArray both(narrow);
    both.SetAtGrow(5, kWide + 5);
    const Bytes stored = Stored(both);
    const std::function<void(COffsetArray&)> operations[] = {
        [](COffsetArray& array) { array.SetAtGrow(8, 1); },
        [](COffsetArray& array) { array.SetAtGrow(3, kWide); },
        [](COffsetArray& array) { array.SetAtGrow(9, kWide); },
        [](COffsetArray& array) { array.SetSize(1000, 4); },
        [](COffsetArray& array) { array = COffsetArray(array); },
    };
    for (const COffsetArray& before : {narrow, both})
    {
        for (const auto& operation : operations)
        {
            FailEachAllocation([&](FailingAllocations& failing) {
                COffsetArray array(before);
                if (!failing.Run([&] { operation(array); }))
                {
                    EXPECT_EQ(EntriesOf(array), EntriesOf(before)) << &operation - operations;
                }
                array.SetAtGrow(20, kWide);
                EXPECT_EQ(array[20], kWide);
            });
        }
    }
    const unsigned allocations = FailEachAllocation([&](FailingAllocations& failing) {
        CXMemFile file(stored.data(), stored.size(), false);
        CXArchive archive(&file, xArchiveLoad);
        COffsetArray array(narrow);
        const bool loaded = failing.Run([&] { array.Serialize(archive); });
        EXPECT_EQ(EntriesOf(array), loaded ? EntriesOf(both) : std::vector<Offset>());
    });
    EXPECT_EQ(allocations, 2U);
}
} // namespace
