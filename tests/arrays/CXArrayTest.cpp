#include "arrays/CXArray.h"

#include "tests/support/ArchiveTools.h"
#include "tests/support/ArrayModel.h"
#include "tests/support/FailingAllocations.h"
#include "tests/support/PrintText.h"
#include "tests/support/Tracked.h"

#include <mutex>

template <bool MOVES>
CXArchive& operator<<(CXArchive& archive, const Tracked<MOVES>& element)
{
    return archive << element.Value();
}

template <bool MOVES>
CXArchive& operator>>(CXArchive& archive, Tracked<MOVES>& element)
{
    int value = 0;
    archive >> value;
    element = Tracked<MOVES>(value);
    return archive;
}

namespace
{
using namespace tev::test;
using Texts = CXArray<CXTString<wchar_t>>;
using Ints = CXArray<int, int>;

template <class TYPE, bool PLAIN_DATA>
struct Kind
{
    using Type = TYPE;
    static constexpr bool kPlainData = PLAIN_DATA;
};

template <class KIND>
class CXArrayOf : public testing::Test
{
};

using ArrayKinds =
    testing::Types<Kind<int, true>, Kind<int, false>, Kind<CXTString<wchar_t>, false>, Kind<CXTString<wchar_t>, true>,
                   Kind<Tracked<true>, false>, Kind<Tracked<true>, true>, Kind<Tracked<false>, false>>;
TYPED_TEST_SUITE(CXArrayOf, ArrayKinds, );

// The seed is fixed, so a failure is reproducible; the fuzz target goes further.
TYPED_TEST(CXArrayOf, RandomUseEqualsAVector)
{
    using Type = typename TypeParam::Type;
    std::mt19937 random(21);
    for (int round = 0; round < 30; ++round)
    {
        ArrayModel<Type> model(TypeParam::kPlainData);
        for (int step = 0; step < 200; ++step)
        {
            const unsigned operation = random();
            ASSERT_TRUE(DoArrayOperation(model, operation, random(), random(), random())) << operation % 20;
            ASSERT_TRUE(model.IsWhole()) << "round " << round << ", step " << step << ": " << operation % 20;
        }
        ArrayModel<Type> target(!TypeParam::kPlainData && !std::is_same_v<Type, Tracked<false>>);
        target.SetSize(static_cast<int>(random() % 40), -1);
        target.CopyFrom(model);
        ASSERT_TRUE(target.IsWhole());
    }
}

TEST(CXArray, GrowthFollowsTheCapacityRule)
{
    const struct
    {
        int m_growBy;
        std::vector<int> m_capacities; // those that appending a thousand elements passes through
    } cases[] = {
        {0, {1,   5,   9,   13,  17,  21,  25,  29,  33,  37,  41,  46,  51,  57,  64,  72,  81,  91,  102, 114,
             128, 144, 162, 182, 204, 229, 257, 289, 325, 365, 410, 461, 518, 582, 654, 735, 826, 929, 1045}},
        {-2, {1, 2, 4, 8, 16, 32, 64, 128, 256, 512, 1024}},
        {300, {300, 600, 900, 1200}},
    };
    for (const auto& [growBy, capacities] : cases)
    {
        Ints ints;
        std::vector<int> seen;
        for (int i = 0; i < 1000; ++i)
        {
            EXPECT_EQ(ints.Add(i, i == 0 ? growBy : -1), i);
            if (seen.empty() || seen.back() != ints.GetCapacity())
                seen.push_back(ints.GetCapacity());
        }
        EXPECT_EQ(seen, capacities) << growBy;
    }
    constexpr int kMost = 0x7FFFFFFF;
    EXPECT_EQ(tev::GrownCapacity(100000, 100000, 0, 100001), 101024);
    EXPECT_EQ(tev::GrownCapacity(kMost - 9, kMost - 9, 1, kMost), kMost);
    const int wrapping[][2] = {{kMost - 1023, 0}, {1 << 30, -2}, {kMost, 1}};
    for (const auto& [capacity, growBy] : wrapping)
    {
        EXPECT_EQ(Thrown([&, from = capacity, by = growBy] { tev::GrownCapacity(from, from, by, from); }),
                  kInvalidArgument);
    }
}

TEST(CXArray, ASizeOfZeroKeepsTheBufferUnlessAutomaticGrowthIsPassed)
{
    Ints ints;
    ints.SetSize(10);
    const int* buffer = ints.GetData();
    ints.SetSize(0);
    EXPECT_EQ(ints.GetCapacity(), 10);
    EXPECT_EQ(ints.GetData(), buffer);
    ints.SetSize(0, 0);
    EXPECT_EQ(ints.GetCapacity(), 0);
    EXPECT_EQ(ints.GetData(), nullptr);
    // Stored also where nothing else is done.
    ints.PreAllocate(0, 50);
    ints.Add(1);
    EXPECT_EQ(ints.GetCapacity(), 50);
    ints.Copy(nullptr, 0xFFFFFFFF);
    EXPECT_EQ(ints.GetData(), nullptr);
}

TEST(CXArray, NewSlotsAreZero)
{
    Ints ints;
    ints.PreAllocate(100);
    EXPECT_EQ(std::count(ints.GetData(), ints.GetData() + 100, 0), 100);
    for (int i = 0; i < 100; ++i)
        ints.Add(-1);
    ints.RemoveAll(true);
    ints.SetSize(50);
    ints.SetAtGrow(250, -1);
    EXPECT_EQ(std::count(ints.begin(), ints.end(), 0), 250);

    struct Labelled
    {
        int m_number = 7;
    };
    CXArray<Labelled> labelled;
    labelled.SetSize(3);
    EXPECT_EQ(labelled[2].m_number, 7);
}

TEST(CXArray, ImpossibleArgumentsChangeNothing)
{
    Texts texts;
    texts.Add(L"one");
    texts.Add(L"two", 10);
    constexpr int kMost = 0x7FFFFFFF;
    const std::function<void()> calls[] = {
        [&] { texts[2]; },
        [&] { texts[-1] = L""; },
        [&] { texts.SetSize(-1); },
        [&] { texts.SetSize(5, -3); },
        [&] { texts.PreAllocate(-1, 0); },
        [&] { texts.SetAtGrow(-1, L""); },
        [&] { texts.SetAtGrow(kMost, L""); },
        [&] { texts.Add(L"", -3); },
        [&] { texts.InsertAt(-1, L""); },
        [&] { texts.InsertAt(0, L"", 0); },
        [&] { texts.InsertAt(0, L"", kMost); },
        [&] { texts.InsertAt(kMost, L""); },
        [&] { texts.RemoveAt(-1); },
        [&] { texts.RemoveAt(0, -1); },
        [&] { texts.RemoveAt(1, 2); },
        [&] { texts.RemoveAt(2, kMost); },
        [&] { texts.Copy(texts.GetData(), 0x80000000); },
    };
    for (const auto& call : calls)
    {
        EXPECT_EQ(Thrown(call), kInvalidArgument) << &call - calls;
        ASSERT_EQ(texts.GetSize(), 2);
        ASSERT_EQ(texts.GetCapacity(), 11);
        ASSERT_EQ(texts[0] + texts[1], L"onetwo");
    }
    texts.RemoveAt(2, 0);
    texts.SetSize(12);
    EXPECT_EQ(texts.GetCapacity(), 21) << "the growth setting has changed";
}

template <class KIND>
class CXArrayOfThrowing : public testing::Test
{
};

using ThrowingKinds =
    testing::Types<Kind<Tracked<true>, false>, Kind<Tracked<true>, true>, Kind<Tracked<false>, false>>;
TYPED_TEST_SUITE(CXArrayOfThrowing, ThrowingKinds, );

TYPED_TEST(CXArrayOfThrowing, NothingLeaksAndAdditionsThatFailAreUndone)
{
    using Type = typename TypeParam::Type;
    using Array = CXArray<Type>;
    const std::pair<void (*)(Array&), bool> operations[] = {
        {[](Array& array) { array.Add(array[3]); }, true},
        {[](Array& array) { array.SetAtGrow(14, array[3]); }, true},
        {[](Array& array) { array.SetSize(15); }, true},
        {[](Array& array) { array.AddArray(array); }, true},
        {[](Array& array) { array.InsertAt(13, array[3], 2); }, true},
        {[](Array& array) { array = Array(array); }, true},
        {[](Array& array) { array.Copy(std::vector<Type>(50, Type(1)).data(), 50); }, true},
        {[](Array& array) { array.InsertAt(2, array[3], 3); }, true},
        {[](Array& array) { array.InsertAt(2, array[3]); }, true},
        {[](Array& array) { array.InsertAt(9, array[3], 4); }, true},
        {[](Array& array) { array.SetSize(15, 3); }, true},
        {[](Array& array) { array.Add(array[3], 7); }, true},
        {[](Array& array) { array.RemoveAt(2, 3); }, TypeParam::kPlainData},
        {[](Array& array) { array.Remove(array[4]); }, false},
        {[](Array& array) { array.Copy(std::vector<Type>(5, Type(1)).data(), 5); }, false},
    };
    for (const auto& [run, undone] : operations)
    {
        // The array is full the first time and has room the second time.
        for (const int room : {0, 30})
        {
            const auto filled = [&] {
                Array array(TypeParam::kPlainData);
                array.PreAllocate(10 + room, 5);
                for (int i = 0; i < 10; ++i)
                    array.Add(Type(i));
                return array;
            };
            const auto check = [&, m_undone = undone](const Array& array, bool done) {
                EXPECT_EQ(Type::s_live, array.GetSize());
                if (done || !m_undone)
                    return;
                EXPECT_EQ(array.GetCapacity(), 10 + room);
                ASSERT_EQ(array.GetSize(), 10);
                for (int i = 0; i < 10; ++i)
                    EXPECT_EQ(array[i].Value(), i);
                Array next = array; // and with the same growth setting
                next.SetSize(next.GetCapacity() + 1);
                EXPECT_EQ(next.GetCapacity(), 15);
            };
            bool done = false;
            for (int throwIn = 1; !done; ++throwIn)
            {
                Array array = filled();
                Type::s_throwIn = throwIn;
                try
                {
                    run(array);
                    done = true;
                }
                catch (const std::runtime_error&)
                {
                }
                Type::s_throwIn = 0;
                check(array, done);
            }
            FailEachAllocation([&, m_run = run](FailingAllocations& failing) {
                Array array = filled();
                const bool completed = failing.Run([&] { m_run(array); });
                check(array, completed);
            });
        }
    }
    EXPECT_EQ(Type::s_live, 0);
}

struct Named // neither plain nor with operators
{
    CXTString<wchar_t> m_name;
    int m_number = 0;
};

struct Unmade // cannot be made without an argument
{
    explicit Unmade(int value) : m_value(value) {}
    Tracked<true> m_value;
};

template <class TYPE>
void ExpectNotSerializable()
{
    CXArray<TYPE> array;
    CXMemFile file;
    CXArchive storing(&file, xArchiveStore);
    EXPECT_EQ(Thrown<CXArchiveException>([&] { array.Serialize(storing); }), archiveGeneric);
    storing.Close();
    EXPECT_EQ(file.GetLength(), 0u);
    CXArchive loading(&file, xArchiveLoad);
    EXPECT_EQ(Thrown<CXArchiveException>([&] { array.Serialize(loading); }), archiveGeneric);
    loading.Close();
    EXPECT_EQ(Thrown<CXArchiveException>([&] { array.Serialize(loading); }), archiveGeneric);
}

TEST(CXArray, HoldsElementsThatCannotGoThroughAnArchive)
{
    ExpectNotSerializable<Named>();
    ExpectNotSerializable<Unmade>();
    ExpectNotSerializable<std::unique_ptr<int>>();
    ExpectNotSerializable<std::mutex>();
    CXArray<Named> named;
    named.InsertAt(2, {L"text", 5});
    named.Add(named[2]);
    EXPECT_STREQ(named[3].m_name, L"text");
    CXArray<Unmade> unmade;
    for (int i = 0; i < 20; ++i)
        unmade.InsertAt(0, Unmade(i));
    unmade.RemoveAt(1, 18);
    EXPECT_EQ(unmade[0].m_value.Value() + unmade[1].m_value.Value(), 19);
    CXArray<std::unique_ptr<int>> owners;
    owners.SetSize(3);
    owners[2] = std::make_unique<int>(4);
    owners.SetSize(30);
    owners.RemoveAt(0, 2);
    EXPECT_EQ(*owners[0], 4);
}

TEST(CXArray, ElementsThatCanBeMovedAreNotCopiedWhenTheArrayGrows)
{
    CXArray<Tracked<true>> array;
    array.SetSize(1000);
    Tracked<true>::s_throwIn = 1;
    array.FreeExtra();
    array.PreAllocate(0);
    Tracked<true>::s_throwIn = 0;
    array.SetSize(1000);
    // One for the new element, which is moved in.
    Tracked<true>::s_throwIn = 2;
    array.Add(5);
    EXPECT_EQ(Tracked<true>::s_throwIn, 1);
    Tracked<true>::s_throwIn = 0;
    EXPECT_EQ(array[1000].Value(), 5);
}

struct alignas(64) Line
{
    int m_number;
};

TEST(CXArray, OverAlignedElementsStayAligned)
{
    CXArray<Line> lines;
    for (int i = 0; i < 100; ++i)
    {
        lines.Add({i});
        ASSERT_EQ(reinterpret_cast<std::uintptr_t>(lines.GetData()) % 64, 0U);
    }
    lines.FreeExtra();
    EXPECT_EQ(lines[57].m_number, 57);
    EXPECT_EQ(lines.GetSizeOfElement(), 64U);
}

TEST(CXArray, IsKnownByItsClass)
{
    const Texts texts;
    EXPECT_STREQ(texts.GetRuntimeClassDescriptor()->m_name, "CXArray");
    EXPECT_TRUE(texts.IsKindOf(&CXObject::classCreatorCXObject));
    EXPECT_EQ(CXRuntimeClass::FindRuntimeClass("CXArray"), Ints::GetThisRuntimeClassDescriptor());
}

// Serialization

template <class ARRAY>
void ExpectBytes(std::initializer_list<typename std::decay_t<decltype(ARRAY()[0])>> values, const Bytes& bytes)
{
    ARRAY array;
    for (const auto& value : values)
        array.Add(value);
    EXPECT_EQ(Stored(array), bytes);
    ARRAY loaded;
    loaded.SetSize(4);
    EXPECT_EQ(ThrownByLoading(loaded, bytes), kNothingThrown);
    EXPECT_TRUE(std::equal(loaded.begin(), loaded.end(), values.begin(), values.end()));
}

TEST(CXArray, StandsInArchivesAsTheFormatSays)
{
    ExpectBytes<Ints>({}, {0, 0});
    ExpectBytes<Ints>({1, -2}, {2, 0, 1, 0, 0, 0, 0xFE, 0xFF, 0xFF, 0xFF});
    ExpectBytes<CXArray<float, float>>({1.5F}, {1, 0, 0, 0, 0xC0, 0x3F});
    ExpectBytes<CXArray<bool, bool>>({true, false, true}, {3, 0, 1, 0, 1});
    ExpectBytes<Texts>({L"", L"a\u00E9", L"\U0001F600"}, {3, 0,    0xFF, 0xFE, 0xFF, 0,    0xFF, 0xFE, 0xFF, 2, 'a',
                                                          0, 0xE9, 0,    0xFF, 0xFE, 0xFF, 2,    0x3D, 0xD8, 0, 0xDE});
    ExpectBytes<CXArray<CXTString<char>>>({"ab", ""}, {2, 0, 2, 'a', 'b', 0});
    // The count is that of the 16-bit units.
    ExpectBytes<CXArray<wchar_t, wchar_t>>({L'a', 0, 0x1F600, 0xD800},
                                           {5, 0, 'a', 0, 0, 0, 0x3D, 0xD8, 0, 0xDE, 0, 0xD8});
    ExpectBytes<CXArray<Tracked<true>>>({7}, {1, 0, 7, 0, 0, 0});

    CXArray<Ints> nested;
    nested.SetSize(2);
    nested[1].Add(3);
    const Bytes bytes = {2, 0, 0, 0, 1, 0, 3, 0, 0, 0};
    EXPECT_EQ(Stored(nested), bytes);
    nested.RemoveAll();
    EXPECT_EQ(ThrownByLoading(nested, bytes), kNothingThrown);
    ASSERT_EQ(nested.GetSize(), 2);
    EXPECT_EQ(nested[1][0], 3);
}

template <class TYPE>
std::vector<TYPE> ValuesOf(const CXArray<TYPE>& array)
{
    return std::vector<TYPE>(array.begin(), array.end());
}

TEST(CXArray, BracesListElementsAndASingleBoolIsTheFlag)
{
    Ints numbers = {3, 1, 2};
    EXPECT_TRUE(numbers == (CXArray<int>{3, 1, 2})) << "however values are passed";
    EXPECT_EQ(numbers.GetCapacity(), 3);
    EXPECT_TRUE(numbers != (Ints{3, 1}) && numbers != (Ints{3, 1, 4}) && Ints{} == Ints());
    EXPECT_EQ(ValuesOf(Texts{L"a", CXTString<wchar_t>(L"b")}), (std::vector<CXTString<wchar_t>>{L"a", L"b"}));

    EXPECT_TRUE((CXArray<int>{true}).IsEmpty());
    EXPECT_TRUE((CXArray<bool>{true}).IsEmpty());
    EXPECT_TRUE((Texts{true}).IsEmpty());
    EXPECT_EQ(ValuesOf(CXArray<bool>{true, false}), (std::vector<bool>{true, false}));
    EXPECT_EQ(ValuesOf(CXArray<int>{true, false, true}), (std::vector<int>{1, 0, 1}));

    numbers.PreAllocate(0, 50);
    numbers = {7};
    numbers.Add(8);
    EXPECT_TRUE(numbers == (Ints{7, 8}));
    EXPECT_EQ(numbers.GetCapacity(), 50) << "the growth setting stays";
    numbers = {};
    EXPECT_EQ(numbers.GetCapacity(), 0);
    CXArray<bool> bools;
    bools = {true};
    EXPECT_EQ(ValuesOf(bools), std::vector<bool>{true});

    FailingAllocations failing(2);
    EXPECT_FALSE(failing.Run([] { CXArray<Tracked<false>>({Tracked<false>(1), Tracked<false>(2)}); }));
    EXPECT_EQ(Tracked<false>::s_live, 0);
}

TEST(CXArray, AddMovesWhatItMay)
{
    CXArray<std::unique_ptr<int>> owners;
    for (int i = 0; i < 40; ++i)
    {
        owners.Add(std::make_unique<int>(i));
        owners.Add(std::move(owners[i == 0 ? 0 : 2 * i - 1])); // an element, also of memory that grows
    }
    EXPECT_EQ(*owners[79], 0);
    EXPECT_EQ(std::count(owners.begin(), owners.end(), nullptr), 40);

    // A value stays its owner's until there is room for it.
    FailingAllocations failing(1);
    auto value = std::make_unique<int>(5);
    owners.FreeExtra();
    EXPECT_FALSE(failing.Run([&] { owners.Add(std::move(value)); }));
    EXPECT_TRUE(value != nullptr && owners.GetSize() == 80 && owners.GetCapacity() == 80);

    CXArray<Tracked<false>> copied; // whose moves may throw
    Tracked<false> element(3);
    copied.Add(std::move(element));
    copied.Add(Tracked<false>(4));
    EXPECT_TRUE(copied[0] == 3 && copied[1] == 4);
}

TEST(CXArray, LoadingGrowsByTheCapacityRule)
{
    // Above the first count form, and so long that it is read in several steps.
    Ints ints;
    ints.SetSize(100000);
    for (int i = 0; i < 100000; ++i)
        ints[i] = i * 31;
    const Bytes bytes = Stored(ints);
    ASSERT_EQ(bytes.size(), 6U + 400000);
    const std::tuple<int, int, int> cases[] = {
        {0, 0, 100000}, {0, 150000, 150000}, {99900, 0, 100924}, {99900, 50, 100000}, {200000, 0, 200000}};
    for (const auto& [size, growBy, capacity] : cases)
    {
        Ints loaded;
        loaded.SetSize(size, growBy);
        EXPECT_EQ(ThrownByLoading(loaded, bytes), kNothingThrown);
        EXPECT_EQ(loaded.GetCapacity(), capacity);
        ASSERT_TRUE(std::equal(loaded.begin(), loaded.end(), ints.begin(), ints.end()));
    }
}

template <class ARRAY>
void ExpectEndOfFile(const Bytes& bytes)
{
    ARRAY array;
    array.SetSize(3);
    EXPECT_EQ(ThrownByLoading(array, bytes), archiveEndOfFile);
    // Memory for what the input holds and one step of 64 KB more.
    EXPECT_LE(array.GetCapacity() * sizeof(array[0]), 0x20000U);
    array.SetSize(5);
    array.Add(array[0]);
}

TEST(CXArray, CountsThatTheInputDoesNotHoldFailAsItsEnd)
{
    const Bytes counts[] = {{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F, 1, 0, 0, 0},
                            {0xFF, 0xFF, 0, 0, 0, 0x80, 1, 0, 0, 0},
                            {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 1, 0, 0, 0, 1, 0, 0, 0},
                            {2, 0, 1, 0},
                            {2}};
    for (const Bytes& bytes : counts)
    {
        ExpectEndOfFile<Ints>(bytes);
        ExpectEndOfFile<Texts>(bytes);
        ExpectEndOfFile<CXArray<wchar_t, wchar_t>>(bytes);
        ExpectEndOfFile<CXArray<Tracked<false>>>(bytes);
    }
    EXPECT_EQ(Tracked<false>::s_live, 0);
}
} // namespace
