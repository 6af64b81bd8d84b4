#include "arrays/CElementArray.h"

#include "arrays/ElementKinds.h"
#include "tests/support/ArchiveTools.h"
#include "tests/support/PrintText.h"
#include "tests/support/Tracked.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <functional>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <vector>

namespace
{
using namespace tev::test;

using Element = Tracked<true>;

// Elements that own memory, count how many live, and throw on request.
class TrackedElements : public CElementMethods
{
public:
    X_DECLARE_CLASS(TrackedElements)

    bool IsObject() const override { return true; }
    unsigned __int64 GetSizeOfElement() const override { return sizeof(Element); }
    unsigned GetTypeOfElement() const override { return XElementType("TRAK"); }
    unsigned GetBaseTypeOfElement() const override { return XElementType(" INT"); }
    // From integers, too.
    bool IsKindOf(const CElementMethods* other) const override
    {
        return CElementMethods::IsKindOf(other) || other->GetTypeOfElement() == GetBaseTypeOfElement();
    }
    void ConstructElement(void* element) override { new (element) Element(); }
    void DestructElement(void* element) override { static_cast<Element*>(element)->~Element(); }
    void CopyElement(void* target, const void* source) override
    {
        *static_cast<Element*>(target) = source == nullptr ? Element(-5) : *static_cast<const Element*>(source);
    }
    void CopyElement(void* target, const CElementMethods* targetMethods, const void* source,
                     const CElementMethods* sourceMethods) override
    {
        EXPECT_EQ(targetMethods, this);
        if (sourceMethods->GetTypeOfElement() == GetBaseTypeOfElement())
            *static_cast<Element*>(target) = Element(1000 + *static_cast<const int*>(source));
    }
    void SerializeElement(CXArchive& archive, void* element) override
    {
        int value = static_cast<Element*>(element)->Value();
        if (archive.IsStoring())
            archive << value;
        else
            archive >> value;
        *static_cast<Element*>(element) = Element(value);
    }
};

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
X_IMPLEMENT_CLASS(TrackedElements, CElementMethods, 1)
X_IMPLEMENT_CLASS(NoSizeElements, CElementMethods, 1)
X_IMPLEMENT_CLASS(HugeElements, CElementMethods, 1)

int ValueAt(const CElementArray& array, int index)
{
    return array.GetTypeOfElement() == XElementType(" INT") ? *static_cast<const int*>(array[index])
                                                            : static_cast<const Element*>(array[index])->Value();
}

std::vector<int> ValuesOf(const CElementArray& array)
{
    std::vector<int> values;
    for (const void* at = array.GetFirst(); at != nullptr; at = array.GetNext(at))
        values.push_back(ValueAt(array, static_cast<int>(values.size())));
    EXPECT_EQ(static_cast<int>(values.size()), array.GetSize());
    return values;
}

// A value in the form of an array's elements.
class Source
{
public:
    Source(const CElementArray& array, int value)
        : m_isInt(array.GetTypeOfElement() == XElementType(" INT")), m_int(value), m_element(m_isInt ? 0 : value)
    {
    }
    operator const void*() const { return m_isInt ? static_cast<const void*>(&m_int) : &m_element; }

private:
    bool m_isInt;
    int m_int;
    Element m_element;
};

void Fill(CElementArray& array, const std::vector<int>& values)
{
    array.SetSize(0);
    for (const int value : values)
        array.Add(Source(array, value));
}

// As Thrown, for calls that pass on what elements and the allocator throw.
constexpr int kByElement = -4;
int FailureOf(const std::function<void()>& call)
{
    try
    {
        return Thrown<CXArchiveException>(call);
    }
    catch (const std::bad_alloc&)
    {
        return kNoMemory;
    }
    catch (const std::runtime_error&)
    {
        return kByElement;
    }
}

// A class in an archive, where it stands first.
Bytes NewClass(const std::string& name, unsigned char schema = 1)
{
    return Bytes{0xFF, 0xFF, schema, 0, static_cast<unsigned char>(name.size()), 0} + Bytes(name.begin(), name.end());
}

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

TEST(CElementArray, BadPositionsThrowAndChangeNothing)
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

TEST(CElementArray, KindsCopyEachOtherWhereOneCan)
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

TEST(CElementArray, ADerivedClassMayChooseOtherSizes)
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
}

TEST(CElementArray, NothingLeaksOrStaysWhereAnElementThrows)
{
    const int before = Element::s_live;
    for (const bool constructMode : {false, true})
    {
        CElementArray other(new TrackedElements);
        Fill(other, {4, 5, 6});
        for (int throwIn = 1; throwIn < 12; ++throwIn)
        {
            const std::function<void(CElementArray&)> operations[] = {
                [&](CElementArray& array) { array.Add(other[0], 3); },
                [&](CElementArray& array) { array.SetAtGrow(5, other[0]); },
                [&](CElementArray& array) { array.SetSize(9); },
                [&](CElementArray& array) { array.InsertAt(1, other[0], 3); },
                [&](CElementArray& array) { array.InsertAt(5, &other); },
                [&](CElementArray& array) { array.InsertAt(1, &array); },
                [&](CElementArray& array) { array.Append(other); },
            };
            for (const auto& operation : operations)
            {
                CElementArray array(new TrackedElements);
                Fill(array, {1, 2, 3});
                array.ConstructMode(constructMode);
                Element::s_throwIn = throwIn;
                const bool failed = FailureOf([&] { operation(array); }) == kByElement;
                Element::s_throwIn = 0;
                if (failed)
                {
                    EXPECT_EQ(ValuesOf(array), (std::vector<int>{1, 2, 3})) << &operation - operations;
                }
                array.SetSize(20);
                array.RemoveAt(1, 5);
                array.Reorder(std::vector<unsigned>(15).data(), 15, false);
            }
        }
    }
    EXPECT_EQ(Element::s_live, before);
}

TEST(CElementArray, TheChecksumRunsBackwardsOverSignedBytes)
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

TEST(CElementArray, TheArchiveNamesTheKind)
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

TEST(CElementArray, HostileArchivesFail)
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
