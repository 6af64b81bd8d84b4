#define FMT_HEADER_ONLY
#include "services/engine/FmtFormatter.h"

#include "tests/support/Testing.h"

#include <fmt/ranges.h> // which has formatters for everything that can be iterated
#include <fmt/xchar.h>

TEST(FmtFormatterTest, TextsAreFormattedAsStrings)
{
    const std::string withNul("a\0b", 3);
    EXPECT_EQ(fmt::format("{}|{:>5}|{:.1}", CXTString<char>("text"), CXTString<char>(withNul), CXTString<char>("xyz")),
              "text|  " + withNul + "|x");
    EXPECT_EQ(fmt::format(L"{}|{:<4}|{}", CXTString<wchar_t>(L"wide"), CPathString(L"a/b"), CExLCString(L"ABC")),
              L"wide|a/b |abc");
}
