#include "arrays/StringArrays.h"

#include "tests/support/FailingAllocations.h"
#include "tests/support/FileFailure.h"
#include "tests/support/PrintText.h"

namespace
{
using namespace tev::test;

using Strings = CXArray<CXTString<wchar_t>>;

Strings Make(std::initializer_list<const wchar_t*> texts)
{
    Strings strings;
    for (const wchar_t* text : texts)
        strings.Add(text);
    return strings;
}

std::wstring Joined(const Strings& strings)
{
    std::wstring all;
    for (const auto& string : strings)
        all += std::wstring(string) + L' ';
    return all;
}

TEST(StringArrays, AreSortedInEachOrderWithEqualStringsKept)
{
    // In the C locale, collation is by the characters' values.
    const std::pair<_CompareStringsEnum, const wchar_t*> cases[] = {{xCompare, L"B a2 b b \U0001F600 "},
                                                                    {xCompareNoCase, L"a2 b B b \U0001F600 "},
                                                                    {xCollate, L"B a2 b b \U0001F600 "},
                                                                    {xCollateNoCase, L"a2 b B b \U0001F600 "}};
    for (const auto& [order, sorted] : cases)
    {
        Strings strings = Make({L"b", L"\U0001F600", L"B", L"a2", L"b"});
        SortStringArray(strings, order);
        EXPECT_EQ(Joined(strings), sorted) << order;
    }
    Strings strings = Make({L"b", L"a"});
    EXPECT_EQ(Thrown([&] { SortStringArray(strings, static_cast<_CompareStringsEnum>(4)); }), kInvalidArgument);
    EXPECT_EQ(Joined(strings), L"b a ");
}

TEST(StringArrays, AreCopiedBehindOrInsteadAndOnlyOnce)
{
    const Strings source = Make({L"a", L"b", L"a", L"B"});
    const std::tuple<bool, bool, int, const wchar_t*> cases[] = {{false, false, 4, L"a b a B "},
                                                                 {true, false, 4, L"b b x a b a B "},
                                                                 {false, true, 3, L"a b B "},
                                                                 {true, true, 2, L"b b x a B "}};
    for (const auto& [append, unique, count, result] : cases)
    {
        Strings target = Make({L"b", L"b", L"x"});
        EXPECT_EQ(CopyStringArray(target, source, append, unique), count) << result;
        EXPECT_EQ(Joined(target), result);
    }
    Strings self = source;
    EXPECT_EQ(CopyStringArray(self, self, true), 4);
    EXPECT_EQ(CopyStringArray(self, self, false, true), 3);
    EXPECT_EQ(Joined(self), L"a b B ");
}

TEST(StringArrays, AreSearchedFromTheFront)
{
    const Strings strings = Make({L"", L"Wood", L"wood", L"wood "});
    EXPECT_EQ(FindInStringArray(strings, L"wood"), 2);
    EXPECT_EQ(FindInStringArray(strings, L"wood", true), 1);
    EXPECT_EQ(FindInStringArray(strings, L""), 0);
    EXPECT_EQ(FindInStringArray(strings, L"woo", true), -1);
}

TEST(StringArrays, AreTakenOutOfAList)
{
    Strings strings = Make({L".old"});
    EXPECT_EQ(ExtractString(L"|.bmp||.dib; x|", strings), 2);
    EXPECT_EQ(Joined(strings), L".bmp .dib; x ");
    strings[0] = L"p|q|r";
    EXPECT_EQ(ExtractString(strings[0], strings), 3);
    EXPECT_EQ(Joined(strings), L"p q r ");
    EXPECT_EQ(ExtractString(L"|", strings), 0);
    EXPECT_TRUE(strings.IsEmpty());
}

TEST(StringArrays, WithoutMemoryTheyStayAsTheyWere)
{
    const Strings source = Make({L"some text", L"b", L"a", L"b", L"and another that is longer"});
    const CXTString<wchar_t> list(L"one|a second part that is longer|three");
    const std::function<void(Strings&)> operations[] = {
        [](Strings& strings) { SortStringArray(strings, xCompare); },
        [](Strings& strings) { SortStringArray(strings, xCollateNoCase); },
        [&](Strings& strings) { CopyStringArray(strings, source, true, true); },
        [&](Strings& strings) { CopyStringArray(strings, source); },
        [&](Strings& strings) { ExtractString(list, strings); },
    };
    for (const auto& operation : operations)
    {
        const unsigned allocations = FailEachAllocation([&](FailingAllocations& failing) {
            Strings strings = Make({L"d", L"text", L"B", L"C"});
            const std::wstring before = Joined(strings);
            if (!failing.Run([&] { operation(strings); }))
            {
                EXPECT_EQ(Joined(strings), before) << &operation - operations;
            }
        });
        EXPECT_NE(allocations, 0u) << &operation - operations;
    }
}
} // namespace
