#include "services/CPathString.h"
#include "tests/support/PrintText.h"
#include "tests/support/TextTools.h"

namespace
{
using namespace tev::test;

template <class T>
class StandardTextTest : public testing::Test
{
};

TYPED_TEST_SUITE(StandardTextTest, Widths, );

// Texts with characters whose signed and unsigned orders differ, and with NULs.
template <class T>
std::vector<std::basic_string<T>> Samples()
{
    std::vector<std::basic_string<T>> samples;
    for (const std::string& text : {""s, "a"s, "ab"s, "b"s, "a\0"s, "a\0b"s, "\0"s, std::string(20, 'x')})
        samples.push_back(Widen<T>(text));
    samples.push_back({T('a'), static_cast<T>(-1)});
    samples.push_back({static_cast<T>(-1)});
    return samples;
}

template <class A, class B>
void ExpectOrder(const A& a, const B& b, int order)
{
    EXPECT_EQ(a == b, order == 0);
    EXPECT_EQ(a != b, order != 0);
    EXPECT_EQ(a < b, order < 0);
    EXPECT_EQ(a <= b, order <= 0);
    EXPECT_EQ(a > b, order > 0);
    EXPECT_EQ(a >= b, order >= 0);
}

TYPED_TEST(StandardTextTest, TextsBecomeStringsAndComeBackWithTheirNuls)
{
    using T = TypeParam;
    using View = std::basic_string_view<T>;
    for (const auto& sample : Samples<T>())
    {
        const auto block = ExactBlock(sample);
        const View view(block.get(), sample.size()); // without a terminator
        const CXTString<T> whole(sample.data(), static_cast<int>(sample.size()));

        CXTString<T> assigned(T('y'), 40);
        CXTString<T> appended(Widen<T>("head ").c_str());
        assigned = view;
        appended += view;
        appended += sample;
        EXPECT_EQ(ToStd(assigned), sample);
        EXPECT_EQ(ToStd(appended), Widen<T>("head ") + sample + sample);
        assigned = sample;
        const CXTString<T> fromView = view;
        const CXTString<T> fromString = sample;
        for (const CXTString<T>& text : {assigned, fromView, fromString})
        {
            EXPECT_EQ(ToStd(text), sample);
            EXPECT_EQ(static_cast<std::basic_string<T>>(text), sample);
            const View back = text;
            EXPECT_EQ(back, view);
            EXPECT_EQ(back.data(), text.GetConstBuffer());
            EXPECT_TRUE(std::equal(text.begin(), text.end(), view.begin(), view.end()));
        }
        // A string made of a view has the buffer of one made of characters and a count.
        CXTString<T> made(view);
        CXTString<T> counted(whole);
        EXPECT_EQ(static_cast<CXTCharArray<T>&>(made).m_capacity, static_cast<CXTCharArray<T>&>(counted).m_capacity);
    }

    // No characters at all, and a part of the text that is changed.
    CXTString<T> text = View();
    EXPECT_TRUE(text.IsEmpty() && text == View());
    text += View();
    text = Widen<T>("0123456789");
    text = View(text).substr(3, 4);
    EXPECT_EQ(text, Widen<T>("3456"));
    text += View(text);
    EXPECT_EQ(text, Widen<T>("34563456"));
    for (T& character : text)
        character = character == T('3') ? T('x') : character;
    EXPECT_EQ(text + Widen<T>("s"), Widen<T>("x456x456s"));
    EXPECT_FALSE((std::is_convertible_v<CXTString<T>, std::basic_string<T>>)) << "ambiguous in an assignment";
}

TYPED_TEST(StandardTextTest, ComparisonsAreThoseOfUnsignedCharacters)
{
    using T = TypeParam;
    using Unsigned = std::make_unsigned_t<T>;
    const auto samples = Samples<T>();
    for (const auto& a : samples)
    {
        for (const auto& b : samples)
        {
            const std::vector<Unsigned> left(a.begin(), a.end());
            const std::vector<Unsigned> right(b.begin(), b.end());
            const int order = left < right ? -1 : left > right ? 1 : 0;
            const CXTString<T> x = a;
            const CXTString<T> y = b;
            ExpectOrder(x, b, order);
            ExpectOrder(a, y, order);
            ExpectOrder(x, std::basic_string_view<T>(b), order);
            ExpectOrder(std::basic_string_view<T>(a), y, order);
            EXPECT_EQ(std::hash<CXTString<T>>()(x) == std::hash<std::basic_string_view<T>>()(b), order == 0);
        }
    }
    std::unordered_map<CXTString<T>, int> counts;
    for (const auto& sample : samples)
        ++counts[sample];
    EXPECT_EQ(counts.size(), samples.size());
    EXPECT_EQ(std::hash<CPathString>()(L"a/b"), std::hash<std::wstring>()(L"a/b"));
}

TYPED_TEST(StandardTextTest, StreamsWriteTheText)
{
    using T = TypeParam;
    using Other = typename CXTString<T>::OtherChar;
    const CXTString<T> text = Widen<T>("ab\0c"s);

    std::basic_ostringstream<T> own;
    own << std::setw(6) << std::setfill(T('.')) << text << std::left << std::setw(5) << text << text;
    EXPECT_EQ(own.str(), Widen<T>("..ab\0cab\0c.ab\0c"s));

    std::basic_ostringstream<Other> other;
    other << std::setw(6) << std::setfill(Other('.')) << text;
    EXPECT_EQ(other.str(), Widen<Other>("..ab\0c"s));
}

TEST(StandardTextTest, TheOtherWidthPassesThroughTheAnsiCodePage)
{
    const CXTString<wchar_t> wide = L"caf\u00e9";
    const CPathString path = L"caf\u00e9";
    for (const auto& [codePage, bytes] : {std::pair(65001u, "caf\xC3\xA9"s), std::pair(1252u, "caf\xE9"s)})
    {
        const AnsiCodePage chosen(codePage);
        std::ostringstream narrowStream;
        narrowStream << wide << path;
        EXPECT_EQ(narrowStream.str(), bytes + bytes);
        std::wostringstream wideStream;
        wideStream << CXTString<char>(bytes);
        EXPECT_EQ(wideStream.str(), L"caf\u00e9");
        EXPECT_EQ(CXTString<wchar_t>(bytes), wide);
        EXPECT_EQ(CXTString<char>(std::wstring_view(wide)), bytes);
        EXPECT_EQ(CXTString<wchar_t>(bytes + "\0x"s), L"caf\u00e9\0x"s);
    }
}

TEST(StandardTextTest, PathsKeepTheirBytes)
{
    namespace fs = std::filesystem;
    const AnsiCodePage chosen(1252); // has no part in it
    const std::pair<std::string, std::wstring> pairs[] = {
        {"", L""},
        {"/a b/caf\xC3\xA9.txt", L"/a b/caf\u00e9.txt"},
        {"bad\xFF\xC3/\x80", L"bad\xDCFF\xDCC3/\xDC80"},
        {"\xF0\x9F\x98\x80", sizeof(wchar_t) == 4 ? std::wstring(1, static_cast<wchar_t>(0x1F600)) : L"\xD83D\xDE00"},
    };
    for (const auto& [bytes, wide] : pairs)
    {
        const fs::path path(bytes);
        const CPathString text = path;
        EXPECT_EQ(ToStd<wchar_t>(text), wide);
        EXPECT_EQ(ToStd(CXTString<wchar_t>(path)), wide);
        const fs::path back = text;
        EXPECT_EQ(back.native(), bytes);
        EXPECT_TRUE(text == path && path == text && !(text != path) && !(path != text));
        EXPECT_EQ((fs::path("folder") / text).native(), fs::path("folder") / path);
        EXPECT_EQ(CPathString(L"folder") / path, CPathString(L"folder") / text);
    }
    EXPECT_EQ(fs::path(CPathString(L"a\\b")), fs::path("a/b"));
    EXPECT_EQ(fs::path(CPathString(L"lone\xD800")), fs::path());
    EXPECT_TRUE(CPathString(L"a/b") == fs::path("a//b") && CPathString(L"a/b") != fs::path("a/c")) << "not as paths";

    CXTString<char> encoded("left over");
    EXPECT_FALSE(XEncodePath(L"lone\xD800", encoded));
    EXPECT_TRUE(encoded.IsEmpty());
    EXPECT_TRUE(XEncodePath(nullptr, encoded) && encoded.IsEmpty());
    CXTString<wchar_t> decoded(L"left over");
    XDecodePath(nullptr, decoded);
    EXPECT_TRUE(decoded.IsEmpty());
}
} // namespace
