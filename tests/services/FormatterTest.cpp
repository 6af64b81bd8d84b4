#define FMT_HEADER_ONLY
#include "services/engine/FmtFormatter.h"

// The tests are C++17, whose standard library has no <format>: tests/support/standard has one that calls {fmt}.
#define __cpp_lib_format 201907L
#include "services/StdFormatter.h"

#include "tests/support/Testing.h"

#include <fmt/ranges.h> // which has formatters for everything that can be iterated
#include <fmt/xchar.h>

#define EXPECT_TEXTS_AS_STRINGS(formatted)                                                                             \
    {                                                                                                                  \
        using formatted;                                                                                               \
        const CXTString<char> withNul("a\0b", 3);                                                                      \
        EXPECT_EQ(format("{}|{:>5}|{:.1}", CXTString<char>("text"), withNul, CXTString<char>("xyz")),                  \
                  std::string("text|  a\0b|x", 12));                                                                   \
        EXPECT_EQ(format(L"{}|{:<4}|{}", CXTString<wchar_t>(L"wide"), CPathString(L"a/b"), CExLCString(L"ABC")),       \
                  L"wide|a/b |abc");                                                                                   \
    }

TEST(FormatterTest, TextsAreFormattedAsStrings)
{
    EXPECT_TEXTS_AS_STRINGS(fmt::format)
    EXPECT_TEXTS_AS_STRINGS(std::format)
}
