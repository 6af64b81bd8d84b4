#include "services/FileWildcards.h"

#include "tests/support/FailingAllocations.h"
#include "tests/support/PrintText.h"

namespace
{
using namespace tev::test;
using Text = CXTString<wchar_t>;

TEST(FileWildcards, ListsBecomePatterns)
{
    const std::tuple<const wchar_t*, bool, const wchar_t*> cases[] = {
        {L"", false, L""},
        {L" ,;; \t", false, L""},
        {L"BMP; .Tif,\"my file.x\"", false, L"*bmp* *.tif* my file.x"},
        {L"BMP; .Tif,\"my file.x\"", true, L"*bmp* *.tif* *.my file.x"},
        {L"\"bmp\" \".tif\" \"a.b\" \"\" \"\"\"", false, L"*.bmp *.tif a.b"},
        {L"*a* *b c* a?b ? *", false, L"*a* *b* *c* a?b ? *"},
        {L"tree TREE *tree,tree*", false, L"*tree*"},
        {L"\"two words", false, L"*.two *words*"},
        {L"\"never .closed", false, L"*.never *.closed*"},
        {L"closing\" a.b\"", false, L"*.closing a.b"},
        {L"\"a\"b c\" d", false, L"*.ab *.c *d*"},
        {L"\"my file\"x", false, L"*.my file *x*"},
        {L"a\tb", false, L"*a\tb*"},
    };
    for (const auto& [list, singleWords, patterns] : cases)
        EXPECT_EQ(fileCleanExtensionList(list, singleWords), patterns) << Text(list);

    const std::wstring longWord(300, L'a');
    EXPECT_EQ(fileCleanExtensionList(longWord.c_str(), false).GetLength(), 259 + 2);
    const std::wstring cutQuote = L"\"" + longWord + L" b\"";
    EXPECT_EQ(fileCleanExtensionList(cutQuote.c_str(), false).GetLength(), 258 + 2);
    EXPECT_EQ(fileCleanExtensionList(Text(L"a\0b c", 5), false), Text(L"*a\0b* *c*", 9));
}

TEST(FileWildcards, ASetGathersPatterns)
{
    CHashTable<Text> set;
    set.Insert(L"*old*");
    EXPECT_EQ(fileCleanExtensionList(L"old new", false, &set), L"*new*");
    EXPECT_EQ(set.GetCount(), 2U);
    Text list = L"\"BMP\";*.tga";
    EXPECT_EQ(fileGetHashFromExtensionList(list, set, false), 2U);
    EXPECT_EQ(list, L"*.bmp *.tga*");
    EXPECT_TRUE(fileMatchWilcards(L"C:/A/Picture.BMP", set));
    EXPECT_TRUE(fileMatchWilcards(L"x.tga.old", set));
    EXPECT_FALSE(fileMatchWilcards(L"x.bmpx", set));
    list.Empty();
    EXPECT_EQ(fileGetHashFromExtensionList(list, set, false), 0U);
    EXPECT_FALSE(fileMatchWilcards(L"x", set));
    const Text many = L"a b c d e f g h i j k l m n o p q r s t u v w x y z";
    const Text patterns = fileCleanExtensionList(many, false);
    EXPECT_NE(FailEachAllocation([&](FailingAllocations& failing) {
                  Text made;
                  const bool isMade = failing.Run([&] { made = fileCleanExtensionList(many, false); });
                  EXPECT_TRUE(!isMade || made == patterns);
              }),
              0U);
}

TEST(FileWildcards, CaseCountsFromTheFirstStarOn)
{
    const std::tuple<const wchar_t*, const wchar_t*, bool, bool> cases[] = {
        {L"", L"", true, true},
        {L"", L"**", true, true},
        {L"", L"?", false, false},
        {L"a", L"", false, false},
        {L"abc", L"a?c", true, true},
        {L"abc", L"a??c", false, false},
        {L"ABC.txt", L"a*.TXT", false, false},
        {L"ABC.txt", L"a*.txt", false, true},
        {L"ABC", L"abc", false, true},
        {L"abc", L"ABC*", false, true},
        {L"\u0161", L"\u0141", false, true}, // low bytes 'a' and 'A'
        {L"\u00E9", L"\u00C9", false, false},
        {L"aab", L"*ab", true, true},
        {L"abab", L"*ab", true, true},
        {L"abcabd", L"a*b?", true, true},
        {L"abc", L"*?*?*?*", true, true},
        {L"abc", L"*?*?*?*?", false, false},
        {L"a*b", L"a\\*b", false, false},
    };
    for (const auto& [name, pattern, withCase, withoutCase] : cases)
    {
        EXPECT_EQ(fileMatchWilcards(name, pattern, true), withCase) << Text(name) << " " << Text(pattern);
        EXPECT_EQ(fileMatchWilcards(name, pattern, false), withoutCase) << Text(name) << " " << Text(pattern);
    }
    EXPECT_TRUE(fileMatchWilcards(Text(L"a\0bc", 4), Text(L"a\0*", 3), true));
    EXPECT_FALSE(fileMatchWilcards(Text(L"a\0bc", 4), L"a", true)) << "a NUL is an ordinary character";
}

/// The definition of the two wildcards, without optimization.
bool Matches(const wchar_t* name, const wchar_t* pattern)
{
    if (*pattern == 0)
        return *name == 0;
    if (*pattern == L'*')
        return Matches(name, pattern + 1) || (*name != 0 && Matches(name + 1, pattern));
    return *name != 0 && (*pattern == L'?' || *pattern == *name) && Matches(name + 1, pattern + 1);
}

TEST(FileWildcards, AgreesWithANaiveMatcher)
{
    std::mt19937 random(20);
    const auto text = [&](const std::wstring& letters, unsigned longest) {
        std::wstring result(random() % (longest + 1), L' ');
        for (wchar_t& character : result)
            character = letters[random() % letters.size()];
        return result;
    };
    int matches = 0;
    for (int round = 0; round < 20000; ++round)
    {
        const std::wstring name = text(L"ab", 8);
        const std::wstring pattern = text(L"ab?**", 6);
        const bool expected = Matches(name.c_str(), pattern.c_str());
        ASSERT_EQ(fileMatchWilcards(name.c_str(), pattern.c_str(), true), expected)
            << Text(name.c_str()) << " " << Text(pattern.c_str());
        matches += expected ? 1 : 0;
    }
    EXPECT_GT(matches, 2000);
    EXPECT_LT(matches, 18000);
}
} // namespace
