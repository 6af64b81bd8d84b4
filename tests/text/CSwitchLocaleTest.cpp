#include "text/CSwitchLocale.h"

#include "tests/support/PrintText.h"
#include "text/CExLCString.h"

#include <clocale>

namespace
{
TEST(CXTStringLocaleTest, CaseFollowsTheLocaleOfTheCLibrary)
{
    if (std::setlocale(LC_CTYPE, "C.UTF-8") == nullptr)
        GTEST_SKIP() << "the system has no C.UTF-8 locale";
    EXPECT_EQ(CXTString<wchar_t>(L"\u00C4\u03A9").MakeLower(), L"\u00E4\u03C9");
    EXPECT_EQ(CXTString<wchar_t>(L"x\u00C4b").FindNoCase(L"\u00E4B"), 1);
    EXPECT_EQ(CXTString<wchar_t>(L"\u00C4b").CompareNoCase(L"\u00E4B"), 0);
    CXTString<wchar_t> title(L"\u00E9LAN Vital");
    CapitalizeText(title);
    EXPECT_EQ(title, L"\u00C9lan vital");
    CExLCString lower(CXTString<wchar_t>(L"ABC \u00C4\u00D6"));
    EXPECT_EQ(lower, L"abc \u00E4\u00F6");
    EXPECT_EQ(lower.Find(CXTString<wchar_t>(L"\u00C4\u00D6")), 4);
    EXPECT_EQ(lower.Find(L"ABC"), 0);
    EXPECT_EQ(lower.Find(CXTString<wchar_t>(L"ABC"), 1), -1);
    lower = CXTString<wchar_t>(L"NEW");
    EXPECT_EQ(lower, L"new");
    std::setlocale(LC_CTYPE, "C");
    EXPECT_EQ(CleanText(L"&Save && &exit"), L"Save  exit");
}

TEST(CSwitchLocaleTest, SwitchedLocaleStaysInForce)
{
    std::setlocale(LC_NUMERIC, "C");
    {
        CSwitchLocale change(LC_NUMERIC, L"C.UTF-8");
        EXPECT_EQ(change.GetSavedLocale(), L"C");
    }
    EXPECT_STREQ(std::setlocale(LC_NUMERIC, nullptr), "C.UTF-8");
    {
        CSwitchLocale unknown(LC_NUMERIC, L"no such locale");
        EXPECT_EQ(unknown.GetSavedLocale(), L"C.UTF-8");
    }
    EXPECT_STREQ(std::setlocale(LC_NUMERIC, nullptr), "C.UTF-8");
    std::setlocale(LC_NUMERIC, "C");
}
} // namespace
