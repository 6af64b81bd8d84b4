#include "tests/support/Testing.h"
#include "tests/support/TextTools.h"

namespace
{
using namespace tev::test;

template <class T, class... Targets>
int Scan(const std::string& text, const std::string& format, Targets... targets)
{
    return CXTString<T>(Widen<T>(text).c_str()).ScanS(Widen<T>(format).c_str(), targets...);
}

template <class T>
class ScanTest : public testing::Test
{
};

TYPED_TEST_SUITE(ScanTest, Widths);

constexpr int kUntouched = -77;

std::vector<std::string> Words(const std::string& text)
{
    std::istringstream words(text);
    return {std::istream_iterator<std::string>(words), {}};
}

TYPED_TEST(ScanTest, IntegersAreReadAsFarAsStrtolWould)
{
    using T = TypeParam;
    const std::tuple<const char*, const char*, int> cases[] = {
        {"42", "%d%n", 10},          {" \t\n-17x", "%d%n", 10},
        {"+5", "%i%n", 0},           {"0x1fG", "%i%n", 0},
        {"0755", "%i%n", 0},         {"089", "%i%n", 0},
        {"0xg", "%x%n", 16},         {"0x", "%i%n", 0},
        {"0XaB", "%X%n", 16},        {"-0x10", "%x%n", 16},
        {"778", "%o%n", 8},          {"2147483647", "%d%n", 10},
        {"-2147483648", "%d%n", 10}, {"12345678901234567", "%3d%n", 10},
    };
    for (const auto& [text, format, base] : cases)
    {
        int value = kUntouched;
        int length = kUntouched;
        EXPECT_EQ(Scan<T>(text, format, &value, &length), 1) << text;
        const std::string field = format[1] == '3' ? std::string(text, 3) : text;
        char* end = nullptr;
        EXPECT_EQ(value, static_cast<int>(std::strtol(field.c_str(), &end, base))) << text;
        EXPECT_EQ(length, end - field.c_str()) << text;
    }
    for (const char* text : {"x", "-", "+-1", "--1", "- 1", ".5", "_"})
    {
        int value = kUntouched;
        EXPECT_EQ(Scan<T>(text, "%d", &value), 0) << text;
        EXPECT_EQ(value, kUntouched) << text;
    }
}

TYPED_TEST(ScanTest, IntegersOfEverySizeStopAtTheirLimits)
{
    using T = TypeParam;
    const auto check = [](const char* format, auto initial, const char* text, auto limit) {
        const auto expected = static_cast<decltype(initial)>(limit);
        decltype(initial) values[3] = {initial, initial, initial};
        EXPECT_EQ(Scan<T>(text, format, &values[1]), 1) << format << " " << text;
        EXPECT_EQ(values[1], expected) << format << " " << text;
        EXPECT_TRUE(values[0] == initial && values[2] == initial) << format << " writes outside its target";
    };
    const char* const huge = "99999999999999999999999";
    const char* const tiny = "-99999999999999999999999";
    check("%hhd", int8_t(7), huge, INT8_MAX);
    check("%hhd", int8_t(7), tiny, INT8_MIN);
    check("%hu", uint16_t(7), "65536", UINT16_MAX);
    check("%hd", int16_t(7), "-32769", INT16_MIN);
    check("%d", 7, "2147483648", INT_MAX);
    check("%i", 7, "-0x80000001", INT_MIN);
    check("%u", 7u, "-1", UINT_MAX);
    check("%x", 7u, "123456789", UINT_MAX);
    check("%I32u", uint32_t(7), "4294967295", UINT32_MAX);
    check("%ld", 7L, tiny, LONG_MIN);
    check("%lld", 7LL, "9223372036854775808", LLONG_MAX);
    check("%I64d", 7LL, "-9223372036854775808", LLONG_MIN);
    check("%llu", 7ULL, "18446744073709551615", ULLONG_MAX);
    check("%qo", 7ULL, "7777777777777777777777777", ULLONG_MAX);
    check("%zu", size_t(7), "123456789012", size_t(123456789012));
    check("%td", ptrdiff_t(7), "-5", ptrdiff_t(-5));
    check("%jd", intmax_t(7), "6", intmax_t(6));
    void* const none = nullptr;
    check("%p", reinterpret_cast<void*>(7), "(nil)", none);
    check("%p", none, "0x1F0", reinterpret_cast<void*>(0x1F0));
}

TYPED_TEST(ScanTest, FloatingPointIsReadAsFarAsStrtodWouldInTheCLocale)
{
    using T = TypeParam;
    for (const std::string& text :
         Words("0 -0.0 1.5 .5 5. +2.25e3 1e 1e+ 1e+2x -1E-3, 0x1.8p1 0x.8 0x 0xp1 inf -Infinity INFINIT nan "
               "nan(24333333333333333333333) 1e400 -1e400 1e-400 0.1 123456789012345678901234567890 4.9e-324 "
               "0x1p99999 0x1p-99999 1e99999999999999999999 "
               "0.00000000000000000000000000000000000000000000000000000000000000000001e70"))
    {
        double value = kUntouched;
        int length = kUntouched;
        EXPECT_EQ(Scan<T>(text, "%lf%n", &value, &length), 1) << text;
        char* end = nullptr;
        const double expected = std::strtod(text.c_str(), &end);
        EXPECT_TRUE(value == expected || (std::isnan(value) && std::isnan(expected))) << text << " " << value;
        EXPECT_EQ(std::signbit(value), std::signbit(expected)) << text;
        EXPECT_EQ(length, end - text.c_str()) << text;

        float small = kUntouched;
        EXPECT_EQ(Scan<T>(text, "%g", &small), 1) << text;
        EXPECT_TRUE(small == std::strtof(text.c_str(), nullptr) || std::isnan(small)) << text << " " << small;
        long double large = kUntouched;
        EXPECT_EQ(Scan<T>(text, "%La", &large), 1) << text;
        EXPECT_TRUE(large == std::strtold(text.c_str(), nullptr) || std::isnan(large)) << text << " " << large;
    }
    for (const char* text : {"x", "-", ".", "--1", "+-1", "e5", "in"})
    {
        double value = kUntouched;
        EXPECT_EQ(Scan<T>(text, "%lf", &value), 0) << text;
        EXPECT_EQ(value, kUntouched) << text;
    }
    double first = 0;
    double second = 0;
    EXPECT_EQ(Scan<T>("3.14159", "%4lf%lf", &first, &second), 2);
    EXPECT_EQ(first, 3.14);
    EXPECT_EQ(second, 159);
}

template <class T, class Value>
void ExpectScannedAs(const std::string& text, const char* format, Value (*convert)(const char*, char**))
{
    Value value = kUntouched;
    EXPECT_EQ(Scan<T>(text, format, &value), 1) << text;
    EXPECT_EQ(value, convert(text.c_str(), nullptr)) << text << ' ' << format;
}

TYPED_TEST(ScanTest, FloatingPointAtTheEndsOfItsRangeIsThatOfStrtod)
{
    using T = TypeParam;
    std::vector<std::string> texts =
        Words("1e-4940 3.6451995318824746025e-4951 1.8e-4951 1.9e-4951 0x1p-16446 0x1.8p-16446 0x1.fffp-16383 "
              "0x1p16384 -1e-4945 1.18973149535723176509e4932 -0x1.ffp-16400, 3.3621e-4932");
    std::vector<long double> edges;
    const auto addEdges = [&](auto limits) {
        edges.insert(edges.end(), {limits.denorm_min(), limits.min(), limits.max()});
    };
    addEdges(std::numeric_limits<float>());
    addEdges(std::numeric_limits<double>());
    addEdges(std::numeric_limits<long double>());
    for (const long double edge : edges)
    {
        for (const long double factor : {0.499L, 0.5L, 0.501L, 0.999999999999L, 1.0L, 1.000000001L, 1.5L, 2.0L})
        {
            for (const char* format : {"%.3Le", "%.25Le", "%La", "%.2La"})
            {
                char text[100];
                std::snprintf(text, sizeof text, format, edge * factor);
                texts.emplace_back(text);
            }
        }
    }
    for (const std::string& text : texts)
    {
        ExpectScannedAs<T>(text, "%f", std::strtof);
        ExpectScannedAs<T>(text, "%lf", std::strtod);
        ExpectScannedAs<T>(text, "%Lf", std::strtold);
    }
}

TEST(ScanWidthTest, RangesOfASetCompareUnsignedValues)
{
    char narrow[8] = {};
    EXPECT_EQ(CXTString<char>("caf\xC3\xA9\n").ScanS("%[ -\xff]", narrow, 8u), 1);
    EXPECT_STREQ(narrow, "caf\xC3\xA9");
    EXPECT_EQ(CXTString<char>("caf\xC3\xA9").ScanS("%[^\x80-\xff]", narrow, 8u), 1);
    EXPECT_STREQ(narrow, "caf");
    EXPECT_EQ(CXTString<char>("\xA9z").ScanS("%[\xff-a]", narrow, 8u), 0) << "no range: out of order";
    wchar_t wide[8] = {};
    const wchar_t largest[] = {L'%', L'[', L'a', L'-', static_cast<wchar_t>(0xFFFFFFFF), L']', 0};
    const wchar_t text[] = {L'b', static_cast<wchar_t>(0x80000001), L'A', 0};
    EXPECT_EQ(CXTString<wchar_t>(text).ScanS(largest, wide, 8u), 1);
    EXPECT_EQ(std::wstring(wide), std::wstring(text, 2));
}

TYPED_TEST(ScanTest, TextFillsItsTargetOrLeavesItEmpty)
{
    using T = TypeParam;
    constexpr unsigned kCapacity = 6;
    // expected (null: untouched)
    const std::tuple<const char*, const char*, int, const char*> cases[] = {
        {"  word next", "%s", 1, "word"}, {"12345", "%s", 1, "12345"},    {"123456", "%s", 0, ""},
        {"123456", "%5s", 1, "12345"},    {"abc", "%2s", 1, "ab"},        {"aabbc", "%[ab]", 1, "aabb"},
        {"hello", "%[a-h]", 1, "he"},     {"a-c-b", "%[ac-]", 1, "a-c-"}, {"zxy", "%[z-a]", 1, "z"},
        {"]x[", "%[]x]", 1, "]x"},        {"ab]c", "%[^]]", 1, "ab"},     {"a b\tc;", "%[^;]", 1, "a b\tc"},
        {" a", "%[a]", 0, nullptr},       {"abcdef", "%[a-f]", 0, ""},    {"abcdef", "%3[a-f]", 1, "abc"},
        {"a", "%[a", 0, nullptr},         {"", "%s", -1, nullptr},        {"  ", "%s", -1, nullptr},
        {"", "%[a]", -1, nullptr},        {"a", "%lls", 0, nullptr},
    };
    for (const auto& [text, format, count, expected] : cases)
    {
        T target[kCapacity + 1] = {T('u'), T('n'), 0, 0, 0, 0, T('|')};
        EXPECT_EQ(Scan<T>(text, format, target, kCapacity), count) << format;
        EXPECT_EQ(std::basic_string<T>(target), Widen<T>(expected == nullptr ? "un" : expected)) << format;
        EXPECT_EQ(target[kCapacity], T('|')) << format;
    }

    T letters[4] = {T('-'), T('-'), T('-'), T('-')};
    EXPECT_EQ(Scan<T>(" xyz", "%3c", letters, 3u), 1);
    EXPECT_EQ(std::basic_string<T>(letters, 4), Widen<T>(" xy-"));
    EXPECT_EQ(Scan<T>("z", "%c", letters, 1u), 1);
    EXPECT_EQ(letters[0], T('z'));
    EXPECT_EQ(Scan<T>("abcd", "%4c", letters, 3u), 0);
    EXPECT_EQ(letters[0], T(0));
    EXPECT_EQ(Scan<T>("abc", "%c", letters, 0u), 0);
    EXPECT_EQ(Scan<T>("abc", "%5c", letters, 4u), -1) << "too few characters";
    EXPECT_EQ(Scan<T>("abc", "%s", static_cast<T*>(nullptr), 5u), 0);
}

TEST(ScanWidthTest, TextOfTheOtherWidthPassesThroughTheAnsiCodePage)
{
    wchar_t wide[8] = {};
    char narrow[8] = {};
    for (const char* format : {"%S", "%ls", "%ws", "%l[^x]"})
    {
        EXPECT_EQ(CXTString<char>("\xC3\xA9t\xE2\x82\xAC").ScanS(format, wide, 8u), 1) << format;
        EXPECT_STREQ(wide, L"\u00e9t\u20ac") << format;
    }
    for (const wchar_t* format : {L"%S", L"%hs", L"%h[^x]"})
    {
        EXPECT_EQ(CXTString<wchar_t>(L"\u00e9t\u20ac").ScanS(format, narrow, 8u), 1) << format;
        EXPECT_STREQ(narrow, "\xC3\xA9t\xE2\x82\xAC") << format;
    }
    EXPECT_EQ(CXTString<char>("own \xC3\xA9").ScanS("%hs %2lc", narrow, 8u, wide, 1u), 2);
    EXPECT_STREQ(narrow, "own");
    EXPECT_EQ(wide[0], L'\u00e9');
    // The capacity counts what is stored, not what is read.
    EXPECT_EQ(CXTString<wchar_t>(L"\u20ac\u20ac\u20ac").ScanS(L"%S", narrow, 8u), 0);
    EXPECT_STREQ(narrow, "");
}

TYPED_TEST(ScanTest, LiteralsBlanksAndSuppressedFields)
{
    using T = TypeParam;
    const struct
    {
        const char* text;
        const char* format;
        int count;
        int first;
        int second;
    } cases[] = {
        {"1,2", "%d,%d", 2, 1, 2},
        {"1 ,2", "%d,%d", 1, 1, kUntouched},
        {"1 ,2", "%d ,%d", 2, 1, 2},
        {"x=1 y=2", "x=%d y=%d", 2, 1, 2},
        {"1 2 3", "%*d %d%*[ ]%d", 2, 2, 3},
        {"word 5", "%*s%d", 1, 5, kUntouched},
        {"50%7", "%d%%%d", 2, 50, 7},
        {"50 %7", "%d%%%d", 2, 50, 7},
        {"\t\v\f\r\n 4", " %d", 1, 4, kUntouched},
        {"4", "%d %d", 1, 4, kUntouched},
        {"4 x", "%d%d", 1, 4, kUntouched},
        {"ab", "abc%d", -1, kUntouched, kUntouched},
        {"abd", "abc%d", 0, kUntouched, kUntouched},
        {"", "", 0, kUntouched, kUntouched},
        {"", " ", 0, kUntouched, kUntouched},
        {"", "%d", -1, kUntouched, kUntouched},
        {"7", "%y", 0, kUntouched, kUntouched},
        {"7", "%", 0, kUntouched, kUntouched},
        {"7", "%0d", 0, kUntouched, kUntouched},
        {"7", "%99999999999d", 0, kUntouched, kUntouched},
        {"7", "%wd", 0, kUntouched, kUntouched},
    };
    for (const auto& item : cases)
    {
        int first = kUntouched;
        int second = kUntouched;
        EXPECT_EQ(Scan<T>(item.text, item.format, &first, &second), item.count) << item.format;
        EXPECT_EQ(first, item.first) << item.format;
        EXPECT_EQ(second, item.second) << item.format;
    }
}

TYPED_TEST(ScanTest, ScanningStartsAtThePosition)
{
    using T = TypeParam;
    const CXTString<T> text(Widen<T>("10 20 30").c_str());
    int value = kUntouched;
    int length = kUntouched;
    EXPECT_EQ(text.ScanS(3, Widen<T>("%d%n").c_str(), &value, &length), 1);
    EXPECT_EQ(value, 20);
    EXPECT_EQ(length, 2) << "counted from the position";
    for (const int position : {-1, 8, 9, INT_MAX, INT_MIN})
        EXPECT_EQ(text.ScanS(position, Widen<T>("%d").c_str(), &value), -1) << position;
    EXPECT_EQ(text.ScanS(static_cast<const T*>(nullptr)), -1);
    EXPECT_EQ(text.ScanS(0, static_cast<const T*>(nullptr)), -1);
    EXPECT_EQ(value, 20);
}
} // namespace
