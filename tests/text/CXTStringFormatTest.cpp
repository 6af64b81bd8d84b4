#include "tests/support/MadeLocale.h"
#include "tests/support/Sanitized.h"
#include "tests/support/TextTools.h"
#include "text/CheckedFormat.h"
#include "text/Language.h"
#include "text/TextFormat.h"

#include <cfloat>
#include <cwchar>

namespace
{
using namespace tev::test;

// The text that a format gives; it starts from a text that must not be left over.
template <class T, class... Values>
std::basic_string<T> Formatted(const T* format, Values... values)
{
    CXTString<T> text(Widen<T>("left over").c_str());
    text.Format(format, values...);
    return ToStd(text);
}

template <class... Values>
void ExpectAsCLibrary(const std::string& format, Values... values)
{
    const int length = std::snprintf(nullptr, 0, format.c_str(), values...);
    ASSERT_GE(length, 0) << format;
    std::string expected(static_cast<size_t>(length), ' ');
    std::snprintf(expected.data(), expected.size() + 1, format.c_str(), values...);
    EXPECT_EQ(Formatted(format.c_str(), values...), expected) << format;
    EXPECT_EQ(Formatted(Widen<wchar_t>(format).c_str(), values...), Widen<wchar_t>(expected)) << format;
}

// Every way to write the field, with the letters after it.
template <class... Values>
void ExpectFieldsAsCLibrary(const std::vector<const char*>& fields, const std::vector<const char*>& letters,
                            Values... values)
{
    for (const std::string field : fields)
    {
        for (const char* letter : letters)
            ExpectAsCLibrary("<%" + field + letter + ">", values...);
    }
}

template <class T>
class FormatTest : public testing::Test
{
};

TYPED_TEST_SUITE(FormatTest, Widths);

TEST(FormatOracleTest, IntegersComeAsTheCLibraryPrintsThem)
{
    const std::vector<const char*> fields = {"",    "5",  "-5", "05",  "+",    " ",    "+05", "-+7", "20",
                                             "025", ".0", ".3", "8.3", "08.3", "-8.3", ".25", " 5",  "-05"};
    for (const int value : {0, 1, -1, 7, 10, 99, 100, 12345, -98765, INT_MAX, INT_MIN})
    {
        ExpectFieldsAsCLibrary(fields, {"d", "i", "hd", "hhd"}, value);
        ExpectFieldsAsCLibrary({"", "9", "-9", "012", ".0", ".14"}, {"u", "x", "X", "o", "hu", "hhx"}, value);
        ExpectFieldsAsCLibrary({"#", "#9", "-#9", "#012", "#.0", "#.14"}, {"x", "X", "o"}, value);
    }
    unsigned long long power = 1;
    for (int digits = 1; digits <= 20; ++digits, power *= 10)
    {
        for (const unsigned long long value : {power - 1, power, power + 1, 0 - power})
        {
            ExpectFieldsAsCLibrary({"", "22", "-22"}, {"llu", "lx", "jo", "zu"}, value);
            ExpectFieldsAsCLibrary({"", "+22", "-22"}, {"lld", "ld", "jd", "td", "qi"}, static_cast<long long>(value));
        }
    }
}

TEST(FormatOracleTest, FloatingPointComesAsTheCLibraryPrintsIt)
{
    const double infinity = std::numeric_limits<double>::infinity();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const std::vector<const char*> fields = {"",    ".0", ".1",  ".2",   ".15",  "12",     "-12.3", "012.3", "+",
                                             " .4", "#",  "#.0", "#.12", ".400", "+015.2", ".1500", "#.1500"};
    const std::vector<const char*> letters = {"f", "F", "e", "E", "g", "G", "a", "A"};
    for (const double value :
         {0.0,      -0.0, 0.5,  1.5,  2.5,    0.125,   0.1,     -3.14159, 9.995,    1e-5,      0.0001, 123456.0,
          999999.5, 1e6,  1e15, 1e22, -1e100, DBL_MAX, DBL_MIN, 4.9e-324, infinity, -infinity, nan})
    {
        ExpectFieldsAsCLibrary(fields, letters, value);
        ExpectFieldsAsCLibrary({".3l"}, letters, value);
    }
    for (const long double value : {0.0L, 1.0L / 3, -2.5L, LDBL_MAX, LDBL_MIN, -1e-4000L, 12345678.9L})
        ExpectFieldsAsCLibrary(fields, {"Lf", "LE", "Lg", "La"}, value);
}

TEST(FormatOracleTest, DecimalsAreRoundedToEvenWhereTheNumberLiesHalfway)
{
    double power = 0x1p-10;
    for (int i = 0; i < 300; ++i)
    {
        // Halves, quarters and eighths lie halfway; thousandths only seem to. The powers cross every size.
        for (const double value : {i / 8.0, i / 1000.0, -i * 1.1, i * 1e5 + 0.5, 1 - i * 0x1p-53, power - i * 0x1p-62})
        {
            for (const char* format : {"%.0f", "%.1f", "%.2f", "%.3f", "%f", "%.9f", "%.10f"})
                ExpectAsCLibrary(format, value);
        }
        power = i % 5 == 0 ? power * 2 : power;
    }
}

TEST(FormatOracleTest, SeparatorsAndDecimalPointsAreThoseOfTheLocale)
{
    const MadeLocale french("fr_FR"); // separators of three bytes, and a decimal comma
    if (!french.IsSet())
        GTEST_SKIP() << "this system cannot make a locale";
    const auto check = [](const char* format, auto value) {
        char narrow[200];
        wchar_t wide[200];
        std::snprintf(narrow, std::size(narrow), format, value);
        std::swprintf(wide, std::size(wide), Widen<wchar_t>(format).c_str(), value);
        EXPECT_EQ(Formatted(format, value), narrow) << format;
        EXPECT_EQ(Formatted(Widen<wchar_t>(format).c_str(), value), wide) << format;
    };
    for (const long long value : {0LL, 999LL, -1000LL, 1234567LL, LLONG_MIN})
    {
        for (const char* format : {"%'lld", "<%'30lld>", "<%-'30lld>", "%+'lld", "%'llu", "%lld"})
            check(format, value);
    }
    for (const double value : {0.5, -1234567.25, 1e22})
    {
        for (const char* format : {"%f", "%.2f", "%'.2f", "%+'f", "%e", "%.3G", "%'g", "%a"})
            check(format, value);
    }
    // A width counts bytes, a precision digits, and only decimal digits are grouped.
    EXPECT_EQ(Formatted("%'12.1f|%'.7d|%'x", 1234.5, 1234, 74565), "   1\u202F234,5|0001\u202F234|12345");
    EXPECT_EQ(Formatted(L"%-'12.1f|", 1234.5), L"1\u202F234,5     |");
}

TEST(FormatOracleTest, TextPointersAndFieldsFromArgumentsComeAsTheCLibraryPrintsThem)
{
    int object = 0;
    for (const void* pointer : {static_cast<const void*>(&object), static_cast<const void*>(nullptr)})
        ExpectFieldsAsCLibrary({"", "20", "-20", "020"}, {"p"}, pointer);
    for (const char* text : {"", "a", "abcdefghij", static_cast<const char*>(nullptr)})
        ExpectFieldsAsCLibrary({"", "6", "-6", ".0", ".3", ".", "8.4", "-8.4", ".6"}, {"hs"}, text);
    for (const int width : {0, 1, 7, -7, 40, -40})
    {
        ExpectAsCLibrary("%*d|%-*d", width, 42, width, -42);
        for (const int precision : {-1, 0, 2, 5})
            ExpectAsCLibrary("%*.*f|%.*hs|100%%", width, precision, 2.71828, precision, "letters");
    }
}

TYPED_TEST(FormatTest, WidthsOfTextAreTheSameOnEveryPlatform)
{
    using T = TypeParam;
    const auto check = [](const char* format, auto... values) {
        return Formatted(Widen<T>(format).c_str(), values...);
    };
    const auto own = [](const char* ascii) { return Widen<T>(ascii); };
    const std::basic_string<T> text = own("own");
    EXPECT_EQ(check("%s|%5s|%-5s|%.2s", text.c_str(), text.c_str(), text.c_str(), text.c_str()),
              own("own|  own|own  |ow"));
    EXPECT_EQ(check("%hs %ls %ws", "narrow", L"wide", L"wide"), own("narrow wide wide"));
    EXPECT_EQ(check("%c%C%hc%lc%wc|%3c|%-3c|", 'a', 'b', 'c', L'd', L'e', 'f', 'g'), own("abcde|  f|g  |"));
    if constexpr (std::is_same_v<T, char>)
        EXPECT_EQ(check("%S", L"other"), own("other"));
    else
        EXPECT_EQ(check("%S", "other"), own("other"));
    EXPECT_EQ(check("%I64d %I64u %I32d %I32u %Id %Iu", INT64_MIN, UINT64_MAX, -5, 4000000000u, ptrdiff_t(-6), SIZE_MAX),
              own("-9223372036854775808 18446744073709551615 -5 4000000000 -6 18446744073709551615"));
    EXPECT_EQ(check("%s|%S|%8s", nullptr, nullptr, nullptr), own("(null)|(null)|  (null)"));
}

TEST(FormatWidthTest, TextOfTheOtherWidthPassesThroughTheAnsiCodePage)
{
    // No locale is set here: only the code page counts.
    EXPECT_EQ(Formatted("%S|%ls|%lc|%C", L"h\u00e9\u20ac", L"\U0001F600", wint_t(0x20AC), wint_t(0xE9)),
              "h\xC3\xA9\xE2\x82\xAC|\xF0\x9F\x98\x80|\xE2\x82\xAC|\xC3\xA9");
    EXPECT_EQ(Formatted(L"%S|%hs|%s", "h\xC3\xA9\xE2\x82\xAC", "\xF0\x9F\x98\x80", L"\u00e9"),
              L"h\u00e9\u20ac|\U0001F600|\u00e9");
    EXPECT_EQ(Formatted(L"%c%lc", wint_t(0xE9), wint_t(0x20AC)), L"\u00e9\u20ac");
    // A width counts units of the result.
    EXPECT_EQ(Formatted("%5S|%-5S|", L"\u20ac", L"\u00e9"), "  \xE2\x82\xAC|\xC3\xA9   |");
    EXPECT_EQ(Formatted(L"%3S|%-3S|", "\xE2\x82\xAC", "\xC3\xA9"), L"  \u20ac|\u00e9  |");
    EXPECT_EQ(Formatted(L"%S|%hc", "a\xFFz", '\xFF'), L"a\uFFFDz|\uFFFD");
    {
        const AnsiCodePage western(1252);
        EXPECT_EQ(Formatted("%S|%C", L"h\u00e9\u20ac\u4e00", wint_t(0x20AC)), "h\xE9\x80?|\x80");
        EXPECT_EQ(Formatted(L"%S|%hc", "h\xE9\x80", '\x80'), L"h\u00e9\u20ac|\u20ac");
    }
    {
        const AnsiCodePage unknown(64999);
        EXPECT_EQ(Formatted("%S", L"\u00e9"), "");
        EXPECT_EQ(Formatted(L"%.3S", "\xE9\xE9\xE9"), L"");
    }
}

TEST(FormatWidthTest, PrecisionSplitsNoCharacterAndReadsNoFurther)
{
    const auto narrow = [](int precision, const std::wstring& source) {
        return Formatted("%.*S", precision, ExactBlock(source).get());
    };
    EXPECT_EQ(narrow(3, L"abc"), "abc");
    EXPECT_EQ(narrow(3, L"\u20ac"), "\xE2\x82\xAC");
    EXPECT_EQ(narrow(5, L"\u20ac\u20ac"), "\xE2\x82\xAC");
    EXPECT_EQ(narrow(4, L"a\u00e9\u00e9"), "a\xC3\xA9");
    EXPECT_EQ(narrow(2, L"\u20ac"), "");
    EXPECT_EQ(narrow(0, L""), "");

    const auto wide = [](int precision, const std::string& source) {
        return Formatted(L"%.*S", precision, ExactBlock(source).get());
    };
    EXPECT_EQ(wide(3, "abc"), L"abc");
    EXPECT_EQ(wide(2, "\xE2\x82\xAC\xC3\xA9"), L"\u20ac\u00e9");
    EXPECT_EQ(wide(3, "\xE9xy"), L"\uFFFDxy");
    EXPECT_EQ(wide(2, "\xE2\x82x"), L"\uFFFDx");
    EXPECT_EQ(wide(2, "\x80\x80"), L"\uFFFD\uFFFD");

    // Its own width: units.
    EXPECT_EQ(Formatted("%.4s", ExactBlock<char>("\xC3\xA9\xC3\xA9").get()), "\xC3\xA9\xC3\xA9");
    EXPECT_EQ(Formatted(L"%.2s", ExactBlock<wchar_t>(L"\u00e9\u20ac").get()), L"\u00e9\u20ac");

    const AnsiCodePage japanese(932);
    EXPECT_EQ(wide(3, "\x82\xA0z\x82\xA2"), L"\u3042z\u3044");
    EXPECT_EQ(narrow(3, L"\u3042\u3044"), "\x82\xA0");
}

TYPED_TEST(FormatTest, PositionsChooseTheArguments)
{
    using T = TypeParam;
    const std::pair<const char*, const char*> cases[] = {
        {"%2$d %1$d", "20 10"},
        {"%1$d %1$x %1$o", "10 a 12"},
        {"%2$*1$d|", "        20|"},
        {"%3$-*1$.*2$d|%%", "00000000000000000030|%"},
        {"%3$d%2$d%1$05d", "302000010"},
        {"%*d", "        20"},
        // Mixed with arguments in order, a gap, no position at all or one too high, types that do not agree.
        {"%1$d %d", ""},
        {"%d %2$d", ""},
        {"%1$*d", ""},
        {"%*1$d", ""},
        {"%3$d %1$d", ""},
        {"%0$d", ""},
        {"%1$*0$d", ""},
        {"%65$d", ""},
        {"%1$d %1$f", ""},
        {"%1$d %2$y", ""},
    };
    for (const auto& [format, expected] : cases)
        EXPECT_EQ(Formatted(Widen<T>(format).c_str(), 10, 20, 30), Widen<T>(expected)) << format;

    // Each is fetched by its own type.
    EXPECT_EQ(Formatted(Widen<T>("%5$hs %4$.1Lf %3$.2f %2$lld %1$c").c_str(), 'c', 1LL << 40, 2.25, 3.5L, "text"),
              Widen<T>("text 3.5 2.25 1099511627776 c"));
}

TYPED_TEST(FormatTest, FaultsInTheFormatMakeTheTextEmpty)
{
    using T = TypeParam;
    const char* const formats[] = {
        "%",    "%y",   "abc %",         "%5",           "%-",
        "%l",   "%.",   "%hhs",          "%llf",         "%zs",
        "%wd",  "%hp",  "%Lc",           "%2147483648d", "%.99999999999d",
        "%j",   "%I6d", "x%2147483647d", "%@",           "%.-5d",
        "%**d", "%#",   "%5$",           "%1$",          "%d%2147483647d%",
    };
    for (const char* format : formats)
    {
        CXTString<T> text(Widen<T>("before").c_str());
        text.AppendFormat(Widen<T>(format).c_str(), 1, 2, 3);
        EXPECT_EQ(ToStd(text), Widen<T>("before")) << format;
        text.Format(Widen<T>(format).c_str(), 1, 2, 3);
        EXPECT_TRUE(text.IsEmpty()) << format;
    }
    int untouched = -1;
    EXPECT_TRUE(Formatted(Widen<T>("ab%n").c_str(), &untouched).empty());
    EXPECT_EQ(untouched, -1);
    EXPECT_TRUE(Formatted(Widen<T>("%*d").c_str(), INT_MIN, 1).empty());

    CXTString<T> kept(Widen<T>("kept").c_str());
    kept.Format(static_cast<const T*>(nullptr));
    kept.AppendFormat(static_cast<const T*>(nullptr));
    EXPECT_EQ(ToStd(kept), Widen<T>("kept"));
}

TYPED_TEST(FormatTest, ArgumentsMayBeTheTextItself)
{
    using T = TypeParam;
    for (const size_t length : {5u, 600u})
    {
        const std::basic_string<T> before(length, T('s'));
        CXTString<T> text(before.c_str());
        text.AppendFormat(Widen<T>("-%s-%s").c_str(), text.GetConstBuffer(), text.GetConstBuffer());
        EXPECT_EQ(ToStd(text), before + T('-') + before + T('-') + before);
        text.Format(Widen<T>("%s+%s").c_str(), text.GetConstBuffer() + length, text.GetConstBuffer() + length);
        const std::basic_string<T> tail = T('-') + before + T('-') + before;
        EXPECT_EQ(ToStd(text), tail + T('+') + tail);
        text = Widen<T>("%d as a format").c_str();
        text.Format(text, 7);
        EXPECT_EQ(ToStd(text), Widen<T>("7 as a format"));
        text = Widen<T>("%d").c_str();
        text.AppendFormat(text, 8);
        EXPECT_EQ(ToStd(text), Widen<T>("%d8"));
    }
}

TYPED_TEST(FormatTest, LengthAndCapacityFollowTheRuleAcrossTheFirstBuffer)
{
    using T = TypeParam;
    const std::pair<size_t, unsigned> cases[] = {{0, 16},     {15, 16},     {16, 64},     {31, 64},
                                                 {32, 65},    {100, 201},   {511, 1023},  {512, 1025},
                                                 {513, 1027}, {1024, 2049}, {5000, 10001}};
    for (const auto& [length, capacity] : cases)
    {
        const std::basic_string<T> content(length, T('x'));
        CXTString<T> whole;
        whole.Format(Widen<T>("%s").c_str(), content.c_str());
        EXPECT_EQ(ToStd(whole), content);
        EXPECT_EQ(static_cast<CXTCharArray<T>&>(whole).m_capacity, capacity) << length;
        // The same text in pieces, so that the buffer is left between any two of them.
        CXTString<T> pieces;
        const int rest = static_cast<int>(length) - 3;
        if (rest >= 0)
        {
            pieces.Format(Widen<T>("x%.*s%cx").c_str(), rest, content.c_str(), 'x');
            EXPECT_EQ(ToStd(pieces), content);
        }
        whole.Format(Widen<T>("short").c_str());
        EXPECT_EQ(static_cast<CXTCharArray<T>&>(whole).m_capacity, capacity) << "never shrinks";
    }
    for (const int width : {511, 512, 513, 100000})
    {
        EXPECT_EQ(Formatted(Widen<T>("a%*d").c_str(), width, 1),
                  T('a') + std::basic_string<T>(static_cast<size_t>(width) - 1, T(' ')) + T('1'));
        EXPECT_EQ(Formatted(Widen<T>("a%-*lsb").c_str(), width, L"w"),
                  Widen<T>("aw") + std::basic_string<T>(static_cast<size_t>(width) - 1, T(' ')) + T('b'));
    }
}

TYPED_TEST(FormatTest, NulIsACharacterLikeAnyOther)
{
    using T = TypeParam;
    const std::basic_string<T> expected = {T('a'), T(0), T('b'), T(0), T(' '), T(0)};
    CXTString<T> text;
    text.Format(Widen<T>("a%cb%lc%2hc").c_str(), 0, 0, 0);
    EXPECT_EQ(ToStd(text), expected);
    text.AppendFormat(Widen<T>("%c").c_str(), 0);
    EXPECT_EQ(ToStd(text), expected + T(0));
}

TYPED_TEST(FormatTest, TextObjectsStandForTheirCStrings)
{
    using T = TypeParam;
    using String = std::basic_string<T>;
    struct Named : CXTString<T>
    {
        using CXTString<T>::CXTString;
    };
    const String format = Widen<T>("<%s|%5d|%-6s|%.2s|%s|%g>");
    const String longText(1000, T('y'));
    const auto block = ExactBlock(Widen<T>("view"));
    const std::basic_string_view<T> view(block.get(), 4);
    const Named named(Widen<T>("named").c_str());
    const T array[] = {T('z'), T(0)};
    CXTString<T> text(Widen<T>("own").c_str());
    text.Format(format.c_str(), text, 7, view, named, longText, 2.5f);
    const String expected = Widen<T>("<own|    7|view  |na|") + longText + Widen<T>("|2.5>");
    EXPECT_EQ(ToStd(text), expected);
    text.AppendFormat(format.c_str(), array, short(7), view, named, longText, 2.5);
    EXPECT_EQ(ToStd(text), expected + Widen<T>("<z|    7|view  |na|") + longText + Widen<T>("|2.5>"));

    // The NUL of a text ends it, and an object may come after a fault.
    text.Format(Widen<T>("%s%s").c_str(), String(2, T(0)), CXTString<T>(T(0), 3));
    EXPECT_TRUE(text.IsEmpty());
    text.Format(Widen<T>("%").c_str(), view);
    EXPECT_TRUE(text.IsEmpty());
    text = Widen<T>("kept");
    text.Format(static_cast<const T*>(nullptr), view);
    text.AppendFormat(Widen<T>("%y").c_str(), view);
    EXPECT_EQ(ToStd(text), Widen<T>("kept"));

    // A message as format.
    constexpr unsigned kCannotFind = 0xf1a2;
    CXTString<T> same;
    same.Format(kCannotFind, Widen<T>("view").c_str());
    text.Format(kCannotFind, view);
    text.AppendFormat(kCannotFind, view);
    EXPECT_EQ(text, same + same);
    EXPECT_GE(same.Find(Widen<T>("view").c_str()), 0);
}

TEST(CheckedFormatTest, ACheckedFormatGivesTheSameText)
{
    const CXTString<wchar_t> wide(L"wide");
    const std::string narrow = "narrow";
    enum Corner
    {
        kThird = 3
    };
    CXTString<char> text;
    text.Format(X_FORMAT("%s|%ls|%S|%5d|%-*.*f|%I64u|%c|%%|%hhd|%p|%zu"), narrow, wide, L"c", kThird, 6, 2, 2.5f,
                1ull << 40, 'x', true, nullptr, sizeof(int));
    EXPECT_EQ(ToStd(text), "narrow|wide|c|    3|2.50  |1099511627776|x|%|1|(nil)|4");
    text.AppendFormat(X_FORMAT("%2$s%1$Lg"), 1.5L, "b");
    EXPECT_EQ(text.Right(4), "b1.5");
    CXTString<wchar_t> other;
    other.Format(X_FORMAT(L"%s %hs %S"), wide, narrow, std::string_view(narrow).substr(0, 3));
    EXPECT_EQ(other, L"wide narrow nar");
}

// A format is accepted exactly where it is carried out: each of these takes an int, a text and a number, in this order.
TEST(CheckedFormatTest, TheCheckAgreesWithWhatIsCarriedOut)
{
    using tev::FormatProblem;
    constexpr FormatProblem kNone = FormatProblem::None;
    constexpr FormatProblem kSyntax = FormatProblem::Syntax;
    const std::pair<const char*, FormatProblem> cases[] = {
        {"%d%s%f", kNone},
        {"%5d|%-5.2s|%+08.3e", kNone},
        {"%3$g%2$hs%1$x", kNone},
        {"%1$d%1$u%2$s%3$f", kNone},
        {"%1$d%2$s%3$.*1$f", kNone},
        {"%*s%f", kNone},
        {"%.*s%f%%", kNone},
        {"%c%s%lf", kNone},
        {"%hhd%s%a", kNone},
        {"%I32d%p%f", kNone},
        {"%d%s%y", kSyntax},
        {"%d%s%f%", kSyntax},
        {"%d%ys%f", kSyntax},
        {"%wd%s%f", kSyntax},
        {"%Ls", kSyntax},
        {"%d%n%f", kSyntax},
        {"%lp", kSyntax},
        {"%1$d%s%f", kSyntax},
        {"%d%2$s%3$f", kSyntax},
        {"%1$d%3$f", kSyntax},
        {"%0$d%s%f", kSyntax},
        {"%65$d", kSyntax},
        {"%2147483648d%s%f", kSyntax},
        {"%d%s%f%d", FormatProblem::TooFew},
        {"%1$d%2$s%3$f%4$d", FormatProblem::TooFew},
        {"%d%s%*f", FormatProblem::Mismatch},
        {"%d%s", FormatProblem::TooMany},
        {"", FormatProblem::TooMany},
        {"%1$d%2$s", FormatProblem::TooMany},
        {"%s%s%f", FormatProblem::Mismatch},
        {"%d%ls%f", FormatProblem::Mismatch},
        {"%d%S%f", FormatProblem::Mismatch},
        {"%d%s%d", FormatProblem::Mismatch},
        {"%d%s%Lf", FormatProblem::Mismatch},
        {"%lld%s%f", FormatProblem::Mismatch},
        {"%p%s%f", FormatProblem::Mismatch},
        {"%d%d%f", FormatProblem::Mismatch},
    };
    const tev::CheckedArgument arguments[] = {tev::CheckedArgumentOf<int>(), tev::CheckedArgumentOf<const char*>(),
                                              tev::CheckedArgumentOf<double>()};
    for (const auto& [format, problem] : cases)
    {
        EXPECT_EQ(tev::FormatChecker<char>(arguments, 3).Check(format), problem) << format;
        if (problem == kNone || problem == kSyntax)
        {
            EXPECT_EQ(Formatted(format, 7, "text", 2.5).empty(), problem == kSyntax) << format;
        }
    }
}

TEST(FormatOutputTest, TheLongestTextIsRefusedBeforeMemoryIsAskedFor)
{
    tev::FormatOutput<wchar_t> output;
    ASSERT_NE(output.Extend(1), nullptr);
    EXPECT_EQ(output.Extend(INT_MAX), nullptr);
    EXPECT_EQ(output.Extend(SIZE_MAX), nullptr);
    EXPECT_EQ(output.Length(), 1u);
    if (kIsSanitized)
        return;                   // memory that is not touched is not free there
    tev::FormatOutput<char> half; // gets room for more than it holds
    ASSERT_NE(half.Extend(1'200'000'000), nullptr);
    EXPECT_EQ(half.Extend(1'200'000'000), nullptr);
    EXPECT_NE(half.Extend(INT_MAX - half.Length()), nullptr);
}
} // namespace
