#include "arrays/CElementArray.h"

#include "tests/support/ArchiveTools.h"
#include "tests/support/FailingAllocations.h"
#include "tests/support/PrintText.h"
#include "tests/support/TrackedElements.h"

namespace
{
using namespace tev::test;

// Kinds that no array can use.
class NoSizeElements : public CXPlainElements<int, XElementType(" INT")>
{
public:
    X_DECLARE_CLASS(NoSizeElements)
    unsigned __int64 GetSizeOfElement() const override { return 0; }
};
class HugeElements : public CXPlainElements<int, XElementType(" INT")>
{
public:
    X_DECLARE_CLASS(HugeElements)
    unsigned __int64 GetSizeOfElement() const override { return 1ULL << 62; }
};
X_IMPLEMENT_CLASS(NoSizeElements, CElementMethods, 1)
X_IMPLEMENT_CLASS(HugeElements, CElementMethods, 1)

// A class in an archive, where it stands first.
Bytes NewClass(const std::string& name, unsigned char schema = 1)
{
    return Bytes{0xFF, 0xFF, schema, 0, static_cast<unsigned char>(name.size()), 0} + Bytes(name.begin(), name.end());
}

TEST(CElementArrayFailure, BadPositionsThrowAndChangeNothing)
{
    CElementArray array(new CXIntElements);
    Fill(array, {1, 2, 3});
    const int value = 9;
    const std::function<void()> misuses[] = {
        [&] { array.SetSize(-1); },
        [&] { array.SetSize(9, true, -3); },
        [&] { array.PreAllocate(-1); },
        [&] { array.SetAt(3, &value); },
        [&] { array.SetAt(-1, &value); },
        [&] { array.SetAtGrow(-1, &value); },
        [&] { array.SetAtGrow(INT_MAX, &value); },
        [&] { array.InsertAt(-1, &value, 1); },
        [&] { array.InsertAt(0, &value, 0); },
        [&] { array.InsertAt(1, &value, INT_MAX); },
        [&] { array.InsertAt(0, static_cast<CElementArray*>(nullptr)); },
        [&] { array.RemoveAt(-1, 1); },
        [&] { array.RemoveAt(0, -1); },
        [&] { array.RemoveAt(2, 2); },
        [&] { array.RemoveAt(3, INT_MAX); },
        [&] { array.Copy(-1, 0, array); },
        [&] { array.Copy(0, 4, array); },
        [&] { array.Copy(INT_MAX, 0, array); },
    };
    for (const auto& misuse : misuses)
        EXPECT_EQ(FailureOf(misuse), kInvalidArgument) << &misuse - misuses;
    EXPECT_EQ(ValuesOf(array), (std::vector<int>{1, 2, 3}));
    for (const int index : {-1, 3, INT_MIN, INT_MAX})
        EXPECT_EQ(array[index], nullptr);
    EXPECT_EQ(array.GetNext(&value), nullptr);
    array.SetAt(array.GetUpperBound(), nullptr);
    array.InsertAt(1, nullptr);
    EXPECT_EQ(ValuesOf(array), (std::vector<int>{1, 0, 2, 0}));

    CElementArray none;
    EXPECT_EQ(none.GetTypeOfElement() | none.GetBaseTypeOfElement(), 0U);
    EXPECT_EQ(FailureOf([&] { none.SetSize(1); }), kInvalidArgument);
    EXPECT_EQ(none.Append(array), -1);
    none.SetMethods(new HugeElements);
    EXPECT_EQ(FailureOf([&] { none.SetSize(2); }), kNoMemory);
}

TEST(CElementArrayFailure, KindsCopyEachOtherWhereOneCan)
{
    CElementArray ints(new CXIntElements);
    CElementArray objects(new TrackedElements);
    CElementArray texts(new CXStringElements);
    Fill(ints, {1, 2, 3});
    Fill(objects, {7});
    objects.Add(nullptr);
    ints.SetGrowFactor(6);
    EXPECT_EQ(objects.GetBaseTypeOfElement(), ints.GetTypeOfElement());
    EXPECT_EQ(objects.Append(ints), 2);
    EXPECT_EQ(ValuesOf(objects), (std::vector<int>{7, -5, 1001, 1002, 1003}));
    EXPECT_TRUE(objects.Copy(4, 1, ints));
    EXPECT_TRUE(objects.InsertAt(1, &ints));
    EXPECT_EQ(ValuesOf(objects), (std::vector<int>{7, 1001, 1002, 1003, -5, 1001, 1002, 1002, 1003}));
    EXPECT_TRUE(objects.Copy(ints));
    EXPECT_EQ(ValuesOf(objects), (std::vector<int>{1001, 1002, 1003}));
    EXPECT_EQ(objects.SetGrowFactor(0), 6);
    // It is the target's methods that copy, and these know no other kind.
    EXPECT_EQ(ints.Append(objects), 3);
    EXPECT_EQ(ValuesOf(ints), (std::vector<int>{1, 2, 3, 0, 0, 0}));
    EXPECT_EQ(texts.Append(ints), -1);
    EXPECT_FALSE(texts.Copy(ints) || texts.Copy(0, 0, ints) || texts.InsertAt(0, &ints));
    // One type, but other elements.
    CElementArray liars(new HugeElements);
    EXPECT_EQ(liars.Append(ints), -1);
    EXPECT_FALSE(liars.Copy(ints));
}

// Has an even number of elements, two at least, until it does not change any more.
class EvenArray : public CElementArray
{
public:
    using CElementArray::CElementArray;
    void SetSize(int newSize, bool keepMemory, int growFactor) override
    {
        if (!m_isFixed)
            CElementArray::SetSize(std::max(2, newSize + newSize % 2), keepMemory, growFactor);
    }
    bool m_isFixed = false;
};

TEST(CElementArrayFailure, ADerivedClassMayChooseOtherSizes)
{
    const int before = Element::s_live;
    EvenArray array(new TrackedElements);
    const Bytes three =
        Bytes{3, 0, 0, 0, 0, 0} + NewClass("TrackedElements") + Bytes{1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0};
    EXPECT_EQ(ThrownByLoading(array, three), kNothingThrown);
    EXPECT_EQ(ValuesOf(array), (std::vector<int>{1, 2, 3, 0}));
    array.InsertAt(1, Source(array, 7));
    EXPECT_EQ(ValuesOf(array), (std::vector<int>{1, 7, 2, 3, 0, 0}));
    EXPECT_EQ(ThrownByLoading(array, three), kNothingThrown);
    array.m_isFixed = true;
    EXPECT_EQ(FailureOf([&] { array.Add(array[0]); }), kInvalidArgument);
    EXPECT_EQ(ValuesOf(array), (std::vector<int>{1, 2, 3, 0}));
    array.SetMethods(new CXIntElements);
    EXPECT_EQ(array.GetSize(), 0);
    EXPECT_EQ(Element::s_live, before);
    array.m_isFixed = false;
    array.SetGrowFactor(9);
    for (const int value : {5, 6})
        array.Add(&value); // the second one within the capacity
    EXPECT_EQ(ValuesOf(array), (std::vector<int>{5, 0, 6, 0}));
}

TEST(CElementArrayFailure, NothingLeaksOrStaysWhereAnElementThrows)
{
    const int before = Element::s_live;
    for (const bool constructMode : {false, true})
    {
        CElementArray other(new TrackedElements);
        Fill(other, {4, 5, 6});
        const std::vector<int> all = {1, 2, 3};
        const struct
        {
            std::function<void(CElementArray&)> m_run;
            std::vector<int> m_after; // where it failed
        } operations[] = {
            {[&](CElementArray& array) { array.Add(other[0], 3); }, all},
            {[&](CElementArray& array) { array.SetAtGrow(5, other[0]); }, all},
            {[&](CElementArray& array) { array.SetSize(9); }, all},
            {[&](CElementArray& array) { array.InsertAt(1, other[0], 3); }, all},
            {[&](CElementArray& array) { array.InsertAt(5, &other); }, all},
            {[&](CElementArray& array) { array.InsertAt(1, &array); }, all},
            {[&](CElementArray& array) { array.Append(other); }, all},
            {[&](CElementArray& array) { array.PreAllocate(9); }, {}},
            {[&](CElementArray& array) { array.RemoveAt(0); }, {2, 3}},
            {[&](CElementArray& array) { array.SetSize(2); }, {1, 2}},
        };
        const auto check = [](CElementArray& array, const std::vector<int>* after) {
            if (after != nullptr)
            {
                EXPECT_EQ(ValuesOf(array), *after);
                EXPECT_EQ(array.SetGrowFactor(-1), 0);
            }
            array.SetSize(20);
            array.RemoveAt(1, 5);
            array.Reorder(std::vector<unsigned>(15).data(), 15, false);
        };
        for (const auto& operation : operations)
        {
            SCOPED_TRACE(&operation - operations);
            const auto fill = [&](CElementArray& array) {
                Fill(array, {1, 2, 3});
                array.ConstructMode(constructMode);
            };
            for (int throwIn = 1; throwIn < 12; ++throwIn)
            {
                CElementArray array(new TrackedElements);
                fill(array);
                Element::s_throwIn = throwIn;
                const bool failed = FailureOf([&] { operation.m_run(array); }) == kByElement;
                Element::s_throwIn = 0;
                check(array, failed ? &operation.m_after : nullptr);
            }
            const unsigned allocations = FailEachAllocation([&](FailingAllocations& failing) {
                CElementArray array(new TrackedElements);
                fill(array);
                check(array, failing.Run([&] { operation.m_run(array); }) ? nullptr : &operation.m_after);
            });
            EXPECT_TRUE(allocations != 0 || operation.m_after != all);
        }
    }
    EXPECT_EQ(Element::s_live, before);
}

TEST(CElementArrayFailure, TheChecksumRunsBackwardsOverSignedBytes)
{
    CElementArray array(new CXByteElements);
    EXPECT_EQ(array.GetChecksum(), 0x811C9DC5U);
    const std::pair<Bytes, unsigned> cases[] = {
        {{1}, 0x040C5B8C}, {{0xFF}, 0xF9F3A14EU}, {{1, 0x80, 3, 0xFE}, 0xD5CD0049U}};
    for (const auto& [bytes, checksum] : cases)
    {
        array.RemoveAll();
        for (const unsigned char byte : bytes)
            array.Add(&byte);
        EXPECT_EQ(array.GetChecksum(), checksum);
    }
}

TEST(CElementArrayFailure, TheArchiveNamesTheKind)
{
    CElementArray ints(new CXIntElements);
    CElementArray texts(new CXStringElements);
    Fill(ints, {1, -2, 0x01020304});
    ints.SetGrowFactor(16);
    CXTString<wchar_t> text = L"Ab";
    texts.Add(&text);
    texts.Add(nullptr);
    const Bytes golden =
        Bytes{3, 0, 16, 0, 0, 0} + NewClass("CXIntElements") + Bytes{1, 0, 0, 0, 0xFE, 0xFF, 0xFF, 0xFF, 4, 3, 2, 1} +
        Bytes{2, 0, 0, 0, 0, 0} + NewClass("CXStringElements") +
        Bytes{0xFF, 0xFE, 0xFF, 2, 'A', 0, 'b', 0, 0xFF, 0xFE, 0xFF, 0} + Bytes{0, 0, 0, 0, 0, 0, 1, 0x80};
    CElementArray none(new CXIntElements);
    EXPECT_EQ(Stored(ints, texts, none), golden);

    // Into arrays that held the other kind.
    CElementArray loadedInts(new TrackedElements);
    CElementArray loadedTexts;
    CElementArray empty(new CXFloatElements);
    Fill(loadedInts, {1, 2});
    loadedInts.ConstructMode(true);
    CXMemFile file(golden.data(), golden.size(), false);
    CXArchive archive(&file, xArchiveLoad | xArchiveStrict);
    for (CElementArray* array : {&loadedInts, &loadedTexts, &empty})
        array->Serialize(archive);
    EXPECT_EQ(ValuesOf(loadedInts), ValuesOf(ints));
    EXPECT_EQ(loadedInts.SetGrowFactor(16), 0);
    ASSERT_EQ(loadedTexts.GetSize(), 2);
    EXPECT_EQ(*static_cast<CXTString<wchar_t>*>(loadedTexts[0]), text);
    EXPECT_EQ(empty.GetTypeOfElement(), XElementType(" INT"));
    EXPECT_EQ(Stored(loadedInts, loadedTexts, empty), golden);

    ints.SetGrowFactor(0);
    for (CElementArray* array : {&ints, &texts})
    {
        array->SetSize(70000);
        const Bytes large = Stored(*array);
        CElementArray loaded;
        EXPECT_EQ(ThrownByLoading(loaded, large), kNothingThrown);
        EXPECT_EQ(Stored(loaded), large);
    }
    CElementArray kindless;
    EXPECT_EQ(FailureOf([&] { Stored(kindless); }), archiveBadClass);
}

TEST(CElementArrayFailure, HostileArchivesFail)
{
    const Bytes huge = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F, 0, 0, 0, 0x40};
    const std::pair<Bytes, int> cases[] = {
        {{}, archiveEndOfFile},
        {{3, 0, 0, 0, 0, 0}, archiveEndOfFile},
        {{3, 0, 0, 0, 0, 0, 0, 0}, archiveBadIndex},
        {{3, 0, 0, 0, 0, 0, 1, 0x80}, archiveBadIndex},
        {Bytes{3, 0, 0, 0, 0, 0} + NewClass("CXObject"), archiveBadClass},
        {Bytes{3, 0, 0, 0, 0, 0} + NewClass("CElementMethods"), archiveBadClass},
        {Bytes{3, 0, 0, 0, 0, 0} + NewClass("CElementArray"), archiveBadClass},
        {Bytes{3, 0, 0, 0, 0, 0} + NewClass("NoClass"), archiveBadClass},
        {Bytes{3, 0, 0, 0, 0, 0} + NewClass("CXIntElements", 2), archiveBadSchema},
        {Bytes{3, 0, 0, 0, 0, 0} + NewClass("NoSizeElements") + Bytes(100, 1), archiveBadClass},
        {Bytes{3, 0, 0, 0, 0, 0} + NewClass("HugeElements") + Bytes(100, 1), archiveEndOfFile},
        {Bytes{1, 0, 0, 0, 0, 0} + NewClass("HugeElements") + Bytes(100, 1), archiveEndOfFile},
        {Bytes{3, 0, 0, 0, 0, 0} + NewClass("CXIntElements") + Bytes(11, 1), archiveEndOfFile},
        {huge + NewClass("CXIntElements") + Bytes(100, 1), archiveEndOfFile},
        {huge + NewClass("CXStringElements") + Bytes(100, 1), archiveEndOfFile},
        {Bytes{0xFF, 0xFF, 0, 0, 0, 0x80, 0, 0, 0, 0} + NewClass("CXIntElements") + Bytes(100, 1), archiveEndOfFile},
        {Bytes{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0, 0, 0, 0, 1} + Bytes(4) + NewClass("CXIntElements"),
         archiveEndOfFile},
    };
    for (const auto& [bytes, cause] : cases)
    {
        CElementArray array(new TrackedElements);
        Fill(array, {1, 2});
        EXPECT_EQ(ThrownByLoading(array, bytes), cause) << &cause - &cases[0].second;
        // What was read of the growth does not stay.
        EXPECT_EQ(array.SetGrowFactor(0), 0);
        array.SetSize(0);
    }
}
} // namespace
