#include "tests/support/Iconv.h"
#include "tests/support/OnThreads.h"
#include "tests/support/Places.h"
#include "tests/support/TextTools.h"
#include "text/Utf.h"
#include "text/XCA2W.h"

namespace
{
using namespace tev::test;

// Each conversion is done with and without the instructions that only some processors have.

std::wstring Decode(const std::string& bytes, xStringEncoding encoding)
{
    CXTString<wchar_t> text(L"left over");
    EXPECT_TRUE(XDecodeText(ExactBlock(bytes).get(), bytes.size(), encoding, text));
    const WithoutAvx2 plain;
    CXTString<wchar_t> same;
    EXPECT_TRUE(XDecodeText(ExactBlock(bytes).get(), bytes.size(), encoding, same));
    EXPECT_TRUE(same == text) << testing::PrintToString(bytes);
    return ToStd(text);
}

std::string Encode(const std::wstring& text, xStringEncoding encoding)
{
    CXTString<char> bytes("left over");
    EXPECT_TRUE(XEncodeText(ExactBlock(text).get(), text.size(), encoding, bytes));
    const WithoutAvx2 plain;
    CXTString<char> same;
    EXPECT_TRUE(XEncodeText(ExactBlock(text).get(), text.size(), encoding, same));
    EXPECT_TRUE(same == bytes) << testing::PrintToString(text);
    return ToStd(bytes);
}

struct Pair
{
    std::string m_bytes;
    std::wstring m_text;
};

std::string ReadCorpus(const std::string& name)
{
    std::ifstream file(std::filesystem::path(kSourceFolder) / "../shared/corpora/text" / name, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

TEST(TextEncodingTest, WrongUtf8BecomesOneReplacementForEachMaximalSubpart)
{
    const Pair cases[] = {
        {"", L""},
        {"a\0b"s, L"a\0b"s},
        {"\xEF\xBB\xBF", L"\xFEFF"},
        {"\x80", L"\xFFFD"},
        {"\xBF\xBF", L"\xFFFD\xFFFD"},
        {"\xC0\xAF", L"\xFFFD\xFFFD"},
        {"\xC1\xBF", L"\xFFFD\xFFFD"},
        {"\xC2", L"\xFFFD"},
        {"\xC2\x41", L"\xFFFD\x41"},
        {"\xE0\x80\x80", L"\xFFFD\xFFFD\xFFFD"},
        {"\xE0\x9F\xBF", L"\xFFFD\xFFFD\xFFFD"},
        {"\xE0\xA0", L"\xFFFD"},
        {"\xE2\x82\xC3\xA9", L"\xFFFD\xE9"},
        {"\xED\xA0\x80", L"\xFFFD\xFFFD\xFFFD"},
        {"\xED\xA0\xBD\xED\xB8\x80", L"\xFFFD\xFFFD\xFFFD\xFFFD\xFFFD\xFFFD"},
        {"\xED\xBF\xBF", L"\xFFFD\xFFFD\xFFFD"},
        {"\xF0\x80\x80\x80", L"\xFFFD\xFFFD\xFFFD\xFFFD"},
        {"\xF0\x8F\xBF\xBF", L"\xFFFD\xFFFD\xFFFD\xFFFD"},
        {"\xF0\x90\x80", L"\xFFFD"},
        {"\xF0\x90\x80\x80", L"\U00010000"},
        {"\xF1\x80\x80\xE1\x80\xC2\x61\x80", L"\xFFFD\xFFFD\xFFFD\x61\xFFFD"},
        {"\xF4\x90\x80\x80", L"\xFFFD\xFFFD\xFFFD\xFFFD"},
        {"\xE4\xB8", L"\xFFFD"},
        {"\xE4", L"\xFFFD"},
        {"\xF0\x9F\x98", L"\xFFFD"},
        {"\xF0\x9F", L"\xFFFD"},
        {"\xF0", L"\xFFFD"},
        {"\xF5\x80", L"\xFFFD\xFFFD"},
        {"\xF8\x88\x80\x80\x80", L"\xFFFD\xFFFD\xFFFD\xFFFD\xFFFD"},
        {"\xFE\xFF", L"\xFFFD\xFFFD"},
    };
    // After every length of ASCII and of other text, so that each case meets each border of the kernels' steps.
    for (const Pair& each : cases)
    {
        for (size_t before = 0; before <= 70; ++before)
        {
            for (size_t after : {0, 1, 40, 100})
            {
                const std::string bytes = std::string(before, 'x') + each.m_bytes + std::string(after, 'y');
                const std::wstring text = std::wstring(before, L'x') + each.m_text + std::wstring(after, L'y');
                ASSERT_EQ(Decode(bytes, xEncodingUtf8), text) << testing::PrintToString(bytes);
            }
            std::string bytes;
            for (size_t i = 0; i < before; ++i)
                bytes += "\xE4\xB8\xAD";
            ASSERT_EQ(Decode("z" + bytes + each.m_bytes, xEncodingUtf8),
                      L"z" + std::wstring(before, L'\x4E2D') + each.m_text);
        }
    }
}

TEST(TextEncodingTest, Utf16JoinsPairsAndPassesLoneSurrogates)
{
    const Pair cases[] = {
        {"", L""},
        {"A\0\0\0\xE9\0"s, L"A\0\xE9"s},
        {"\xFF\xFE", L"\xFEFF"},
        {"\x3D\xD8\x00\xDE"s, L"\U0001F600"},
        {"\xFF\xDB\xFF\xDF", L"\U0010FFFF"},
        {"\x3D\xD8", L"\xD83D"},
        {"\x00\xDE\x3D\xD8"s, L"\xDE00\xD83D"},
        {"\x3D\xD8\x3D\xD8\x00\xDE"s, L"\xD83D\U0001F600"},
        {"\x3D\xD8\x41\x00"s, L"\xD83D\x41"},
    };
    for (const Pair& each : cases)
    {
        // After a longer text, too, of which several characters are processed together.
        for (const std::size_t before : {0, 33})
        {
            const std::wstring text = std::wstring(before, L'\xFFFD') + each.m_text;
            std::string bytes;
            for (std::size_t i = 0; i < before; ++i)
                bytes += "\xFD\xFF";
            bytes += each.m_bytes;
            std::string swapped = bytes;
            for (size_t i = 0; i < swapped.size(); i += 2)
                std::swap(swapped[i], swapped[i + 1]);
            EXPECT_EQ(Decode(bytes, xEncodingUtf16), text);
            EXPECT_EQ(Decode(swapped, xEncodingUtf16BE), text);
            EXPECT_EQ(Decode(swapped, CodePage(1201)), text);
            EXPECT_EQ(Encode(text, xEncodingUtf16), bytes);
            EXPECT_EQ(Encode(text, CodePage(1200)), bytes);
            EXPECT_EQ(Encode(text, xEncodingUtf16BE), swapped);
            EXPECT_EQ(Decode(bytes + "A", xEncodingUtf16), text + L"\xFFFD");
        }
    }
    EXPECT_EQ(Encode(L"\xD83D\xDE00", xEncodingUtf16), "\x3D\xD8\x00\xDE"s);
    EXPECT_EQ(Encode({static_cast<wchar_t>(0x110000), static_cast<wchar_t>(-1)}, xEncodingUtf16), "?\0?\0"s);
}

TEST(TextEncodingTest, Utf32TakesOnlyCodePoints)
{
    EXPECT_EQ(Decode("A\0\0\0\x00\xF6\x01\0"s, kUtf32), L"A\U0001F600");
    EXPECT_EQ(Decode("\0\0\0A\0\x01\xF6\x00"s, kUtf32BE), L"A\U0001F600");
    EXPECT_EQ(Decode("\0\xD8\0\0\0\0\x11\0\xFF\xFF\xFF\xFF\x41\0"s, kUtf32), L"\xFFFD\xFFFD\xFFFD\xFFFD");
    EXPECT_EQ(Encode(L"\xD83D\xDE00\xD83D", kUtf32), "\x00\xF6\x01\0?\0\0\0"s);
    EXPECT_EQ(Encode(L"\x20AC", kUtf32BE), "\0\0\x20\xAC"s);
}

TEST(TextEncodingTest, WideTextBecomesUtf8)
{
    const Pair cases[] = {
        {"", L""},
        {"a\0b"s, L"a\0b"s},
        {"\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF",
         L"\x7F\x80\x7FF\x800\xD7FF\xE000\xFFFF"},
        {"\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", L"\U00010000\U0010FFFF"},
        {"\xF0\x9F\x98\x80", L"\xD83D\xDE00"},
        {"?", L"\xD83D"},
        {"??", L"\xDE00\xD83D"},
        {"?\xF0\x9F\x98\x80?", L"\xD83D\xD83D\xDE00\xDE00"},
        {"?\xC3\xA9", L"\xDBFF\xE9"},
        {"??", {static_cast<wchar_t>(0x110000), static_cast<wchar_t>(-1)}},
    };
    for (const Pair& each : cases)
    {
        for (size_t before = 0; before <= 40; ++before)
        {
            for (size_t after : {0, 1, 7, 40})
            {
                ASSERT_EQ(Encode(std::wstring(before, L'x') + each.m_text + std::wstring(after, L'y'), xEncodingUtf8),
                          std::string(before, 'x') + each.m_bytes + std::string(after, 'y'));
                std::wstring chinese(before, L'\x4E2D');
                std::string bytes;
                while (bytes.size() < before * 3)
                    bytes += "\xE4\xB8\xAD";
                ASSERT_EQ(Encode(chinese + each.m_text + std::wstring(after, L'y'), xEncodingUtf8),
                          bytes + each.m_bytes + std::string(after, 'y'));
            }
        }
    }
}

TEST(TextEncodingTest, EveryCodePointHasTheBytesOfTheCLibrary)
{
    std::wstring all;
    for (wchar_t c = 0; c <= 0x10FFFF; ++c)
    {
        if (c < 0xD800 || c > 0xDFFF)
            all += c;
    }
    const std::pair<const char*, xStringEncoding> encodings[] = {{"UTF-8", xEncodingUtf8},
                                                                 {"UTF-16LE", xEncodingUtf16},
                                                                 {"UTF-16BE", xEncodingUtf16BE},
                                                                 {"UTF-32LE", kUtf32},
                                                                 {"UTF-32BE", kUtf32BE}};
    for (const auto& [name, encoding] : encodings)
    {
        const std::string expected = Iconv(name, all);
        EXPECT_TRUE(Encode(all, encoding) == expected) << name;
        EXPECT_TRUE(Decode(expected, encoding) == all) << name;
    }
    // Short texts take other ways than long ones.
    const std::string expected = Iconv("UTF-8", all);
    size_t offset = 0;
    for (size_t at = 0; at < all.size(); at += 3)
    {
        const std::wstring few = all.substr(at, 3);
        const std::string bytes = Encode(few, xEncodingUtf8);
        ASSERT_EQ(bytes, expected.substr(offset, bytes.size()));
        ASSERT_EQ(Decode(bytes, xEncodingUtf8), few);
        offset += bytes.size();
    }
}

TEST(TextEncodingTest, SampleTextsAgreeInAllForms)
{
    for (const char* language :
         {"Arabic", "Chinese", "Emoji", "Hebrew", "Hindi", "Japanese", "Korean", "Latin", "Russian"})
    {
        const std::string name = "lipsum/"s + language + "-Lipsum.";
        const std::string utf8 = ReadCorpus(name + "utf8.txt");
        const std::string utf16 = ReadCorpus(name + "utf16.txt");
        const std::string utf32 = ReadCorpus(name + "utf32.txt");
        if (utf8.empty())
            GTEST_SKIP() << "the sample texts are not there";
        const std::wstring text = Decode(utf32, kUtf32);
        EXPECT_TRUE(Decode(utf8, xEncodingUtf8) == text) << language;
        EXPECT_TRUE(Encode(text, xEncodingUtf8) == utf8) << language;
        EXPECT_TRUE(Decode(utf16, xEncodingUtf16) == L"\xFEFF" + text) << language;
        EXPECT_TRUE(Encode(L"\xFEFF" + text, xEncodingUtf16) == utf16) << language;
        // Blocks of just the measured size show a kernel that writes too much.
        const auto bytes = ExactBlock(utf8);
        const tev::TextMeasure measure = tev::MeasureUtf8(bytes.get(), utf8.size());
        ASSERT_EQ(measure.m_length, text.size());
        EXPECT_TRUE(measure.m_valid);
        const auto wide = std::make_unique<wchar_t[]>(measure.m_length);
        tev::Utf8ToWide(bytes.get(), utf8.size(), measure, wide.get());
        EXPECT_TRUE(std::equal(text.begin(), text.end(), wide.get())) << language;
        const auto back = std::make_unique<char[]>(utf8.size());
        const tev::TextMeasure backMeasure = tev::MeasureWide(wide.get(), text.size());
        ASSERT_EQ(backMeasure.m_length, utf8.size());
        tev::WideToUtf8(wide.get(), text.size(), backMeasure, back.get());
        EXPECT_TRUE(std::equal(utf8.begin(), utf8.end(), back.get())) << language;
    }
    // Counted by another language's decoder.
    const std::wstring stress = Decode(ReadCorpus("UTF-8-test.txt"), xEncodingUtf8);
    EXPECT_EQ(stress.size(), 22591u);
    EXPECT_EQ(std::count(stress.begin(), stress.end(), L'\xFFFD'), 379);
}

// One script and ASCII, or all mixed, in every tenth text with a wrong character.
std::wstring RandomText(std::mt19937& random)
{
    constexpr wchar_t kFirst[] = {0, 0x80, 0x800, 0x10000};
    constexpr unsigned kCount[] = {0x80, 0x780, 0xD000, 0x100000};
    const unsigned script = random() % 5;
    std::wstring text(random() % (random() % 4 == 0 ? 400 : 70), L' ');
    for (wchar_t& c : text)
    {
        const unsigned kind = script == 4 ? random() % 4 : random() % 5 == 0 ? 0 : script;
        c = static_cast<wchar_t>(kFirst[kind] + static_cast<wchar_t>(random() % kCount[kind]));
    }
    if (!text.empty() && random() % 10 == 0)
        text[random() % text.size()] = static_cast<wchar_t>(random() % 2 == 0 ? 0xD800 + random() % 0x800 : random());
    return text;
}

TEST(TextEncodingTest, KernelsAgreeWithTheReadersAndKeepToTheirRoom)
{
    constexpr unsigned kSeed = 1711;
    SCOPED_TRACE(kSeed);
    std::mt19937 random(kSeed);
    for (int round = 0; round < 3000; ++round)
    {
        const std::wstring text = RandomText(random);
        const tev::WideReader<> characters(text.data(), text.size());
        std::string bytes(tev::Measure<tev::Utf8Form>(characters), '\0');
        tev::Write<tev::Utf8Form>(characters, bytes.data());
        std::string damaged = bytes;
        if (!bytes.empty() && round % 3 == 0)
            damaged[random() % bytes.size()] = static_cast<char>(random());
        const tev::Utf8Reader read(damaged.data(), damaged.size());
        std::wstring decoded(tev::Measure<tev::WideForm<>>(read), L'\0');
        tev::Write<tev::WideForm<>>(read, decoded.data());
        const auto narrow = ExactBlock(damaged);
        const auto wide = ExactBlock(text);
        for (const bool without : {false, true})
        {
            const WithoutAvx2 plain(without);
            const tev::TextMeasure length = tev::MeasureUtf8(narrow.get(), damaged.size());
            const tev::TextMeasure size = tev::MeasureWide(wide.get(), text.size());
            ASSERT_EQ(length.m_length, decoded.size()) << round;
            ASSERT_EQ(size.m_length, bytes.size()) << round;
            for (const size_t more : {0, 7, 8, 40})
            {
                const auto toWide = std::make_unique<wchar_t[]>(decoded.size() + more);
                tev::Utf8ToWide(narrow.get(), damaged.size(), length, toWide.get(), decoded.size() + more);
                ASSERT_TRUE(std::equal(decoded.begin(), decoded.end(), toWide.get())) << round << ' ' << more;
                const auto toNarrow = std::make_unique<char[]>(bytes.size() + more);
                tev::WideToUtf8(wide.get(), text.size(), size, toNarrow.get(), bytes.size() + more);
                ASSERT_TRUE(std::equal(bytes.begin(), bytes.end(), toNarrow.get())) << round << ' ' << more;
            }
        }
    }
}

TEST(TextEncodingTest, SixteenBitWideTextHoldsPairs)
{
    const std::string utf8 = "a\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80\xFF";
    const std::u16string expected = u"a\u00E9\u4E2D\U0001F600\uFFFD";
    const tev::Utf8Reader reader(utf8.data(), utf8.size());
    ASSERT_EQ(tev::Measure<tev::WideForm<char16_t>>(reader), expected.size());
    std::u16string text(expected.size(), u'\0');
    EXPECT_EQ(tev::Write<tev::WideForm<char16_t>>(reader, text.data()), text.data() + text.size());
    EXPECT_EQ(text, expected);

    text.insert(0, 1, static_cast<char16_t>(0xDE00));
    const std::string back = "?a\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80\xEF\xBF\xBD";
    const tev::WideReader<char16_t> wide(text.data(), text.size());
    ASSERT_EQ(tev::Measure<tev::Utf8Form>(wide), back.size());
    std::string bytes(back.size(), '\0');
    tev::Write<tev::Utf8Form>(wide, bytes.data());
    EXPECT_EQ(bytes, back);
}

TEST(TextEncodingTest, CodePagesGoByTheirNumbers)
{
    const struct
    {
        unsigned m_codePage;
        std::string m_bytes;
        std::wstring m_text;
    } cases[] = {
        {37, "\xC1\xBA", L"A["},
        {437, "\x82", L"\xE9"},
        {500, "\xC1\x4A", L"A["},
        {932, "\x93\xFA\x96\x7B", L"\x65E5\x672C"},
        {1047, "\xAD", L"["},
        {1140, "\x9F", L"\x20AC"},
        {1252, "\x80\xE9\xFF", L"\x20AC\xE9\xFF"},
        {1255, "\xE0\xE1", L"\x5D0\x5D1"},
        {1361, "\x88\x61", L"\xAC00"},
        {10000, "\x8E", L"\xE9"},
        {20127, "A", L"A"},
        {20273, "\x4A", L"\xC4"},
        {20866, "\xF6", L"\x416"},
        {28605, "\xA4", L"\x20AC"},
        {28606, "\xFE", L"\x21B"},
        {50220, "a\x1B$BF|\x1B(B", L"a\x65E5"},
        {51932, "\xC6\xFC", L"\x65E5"},
        {51949, "\xB0\xA1", L"\xAC00"},
        {54936, "\x94\x39\xFC\x36", L"\U0001F600"},
        {65000, "+AOk-", L"\xE9"},
        {65001, "\xC3\xA9", L"\xE9"},
    };
    for (const auto& each : cases)
    {
        EXPECT_EQ(Decode(each.m_bytes, CodePage(each.m_codePage)), each.m_text) << each.m_codePage;
        EXPECT_EQ(Encode(each.m_text, CodePage(each.m_codePage)), each.m_bytes) << each.m_codePage;
        EXPECT_EQ(Decode("", CodePage(each.m_codePage)), L"");
        EXPECT_EQ(Encode(L"", CodePage(each.m_codePage)), "");
        // Longer than any buffer on the way.
        std::string bytes;
        std::wstring text;
        for (int i = 0; i < 3000; ++i)
        {
            bytes += each.m_bytes;
            text += each.m_text;
        }
        EXPECT_TRUE(Decode(bytes, CodePage(each.m_codePage)) == text) << each.m_codePage;
        EXPECT_TRUE(Decode(Encode(text, CodePage(each.m_codePage)), CodePage(each.m_codePage)) == text);
    }
}

TEST(TextEncodingTest, CodePagesReplaceWhatHasNoMeaning)
{
    const std::tuple<unsigned, std::string, std::wstring> decoded[] = {
        {1252, "a\x81z\x8D\x8F", L"a\xFFFDz\xFFFD\xFFFD"},
        {20127, "a\xE9\xA9z", L"a\xFFFD\xFFFDz"},
        {932, "a\x93", L"a\xFFFD"},
        {932, "\x93 z", L"\xFFFD z"},
        {54936, "a\x94\x39\xFC", L"a\xFFFD"},
        {1255, "\xE0\xD9\xE1", L"\x5D0\xFFFD\x5D1"}, // the decoder keeps a letter back, in case an
                                                     // accent follows
        {1255, "\xE0", L"\x5D0"},
    };
    for (const auto& [codePage, bytes, text] : decoded)
        EXPECT_EQ(Decode(bytes, CodePage(codePage)), text) << codePage;

    const struct
    {
        unsigned m_codePage;
        std::wstring m_text;
        std::string m_bytes;
    } encoded[] = {
        {1252, L"a\x4E2Dz\U0001F600", "a?z?"},
        {1252, L"\xD83D\xDE00\xD83D\xE9\xDE00", "??\xE9?"},
        {1252, {L'a', static_cast<wchar_t>(0x110000), static_cast<wchar_t>(-1)}, "a??"},
        {1252, L"\U000E0067\U000E007Fz", "??z"},
        {1252, L"\x2500\x0141\xFF21", "???"},
        {20127, L"\xE9\x201C", "??"},
        {500, L"\x4E2D", "\x6F"},
        {50220, L"\x65E5\xE9\x65E5", "\x1B$BF|\x1B(B?\x1B$BF|\x1B(B"},
        {54936, L"\xD83D\xDE00", "\x94\x39\xFC\x36"},
    };
    for (const auto& each : encoded)
        EXPECT_EQ(Encode(each.m_text, CodePage(each.m_codePage)), each.m_bytes) << each.m_codePage;
}

TEST(TextEncodingTest, FailureLeavesTheTargetEmpty)
{
    for (unsigned codePage : {5u, 7u, 1199u, 28602u, 99999u, 0xFFFFFFFEu})
    {
        CXTString<wchar_t> text(L"before");
        CXTString<char> bytes("before");
        EXPECT_FALSE(XDecodeText("a", 1, CodePage(codePage), text)) << codePage;
        EXPECT_FALSE(XEncodeText(L"a", 1, CodePage(codePage), bytes)) << codePage;
        EXPECT_TRUE(text.IsEmpty() && bytes.IsEmpty()) << codePage;
    }
    CXTString<wchar_t> text(L"before");
    CXTString<char> bytes("before");
    EXPECT_FALSE(XDecodeText(nullptr, 0, xEncodingUtf8, text));
    EXPECT_FALSE(XEncodeText(nullptr, 0, xEncodingUtf8, bytes));
    EXPECT_TRUE(text.IsEmpty() && bytes.IsEmpty());
}

TEST(TextEncodingTest, TheTargetGrowsOnceAndByTheRule)
{
    for (const std::string& bytes : {std::string(40, 'a'), std::string(40, '\xE9'), "\xE4" + std::string(39, '\x80')})
    {
        CXTString<wchar_t> text;
        ASSERT_TRUE(XDecodeText(bytes.data(), bytes.size(), xEncodingUtf8, text));
        const auto length = static_cast<unsigned __int64>(text.GetLength());
        EXPECT_EQ(static_cast<CXTCharArray<wchar_t>&>(text).m_capacity, 2 * length + 1);
        CXTString<char> back;
        ASSERT_TRUE(XEncodeText(text, length, xEncodingUtf8, back));
        EXPECT_EQ(static_cast<CXTCharArray<char>&>(back).m_capacity, 2 * back.GetLength64() + 1);
    }
}

TEST(TextEncodingTest, AnsiIsTheChosenCodePage)
{
    ASSERT_EQ(XGetAnsiCodePage(), 65001u);
    EXPECT_EQ(Decode("\xC3\xA9", xEncodingAnsi), L"\xE9");
    {
        const AnsiCodePage western(1252);
        EXPECT_EQ(XGetAnsiCodePage(), 1252u);
        for (xStringEncoding encoding : {xEncodingAnsi, xEncodingUnknown, CodePage(0)})
        {
            EXPECT_EQ(Decode("\x80", encoding), L"\x20AC");
            EXPECT_EQ(Encode(L"\x20AC\x4E2D", encoding), "\x80?");
        }
        CXTString<wchar_t> wide("\xE9");
        wide += "\x80";
        wide += reinterpret_cast<const unsigned char*>("\xFC");
        EXPECT_EQ(wide, L"\xE9\x20AC\xFC");
        EXPECT_EQ(wide = reinterpret_cast<const unsigned char*>("\x80"), L"\x20AC");
        CXTString<char> narrow(L"\xE9");
        EXPECT_EQ(narrow += L"\x20AC\x4E2D", "\xE9\x80?");
        EXPECT_STREQ(XCA2W("\x80"), L"\x20AC");
        EXPECT_STREQ(XCW2A(L"\x20AC"), "\x80");
        EXPECT_STREQ(XCA2W("\xC3\xA9", xEncodingUtf8), L"\xE9");
    }
    for (unsigned unknown : {0u, 1u, 3u, 99999u})
    {
        const AnsiCodePage none(unknown);
        CXTString<wchar_t> text;
        EXPECT_FALSE(XDecodeText("a", 1, xEncodingAnsi, text)) << unknown;
        text = L"an unknown code page leaves nothing";
        EXPECT_TRUE((text = "a").IsEmpty());
        EXPECT_FALSE(XCW2A(L"a").IsValid());
    }
}

TEST(TextEncodingTest, Utf8CannotFail)
{
    const std::string_view utf8("a\xC3\xA9\0\xF0\x9F\x98\x80", 8);
    const CXTString<wchar_t> wide = XDecodeUtf8(utf8);
    EXPECT_EQ(wide, CXTString<wchar_t>(L"a\u00e9\0\U0001F600", 4));
    EXPECT_EQ(XEncodeUtf8(wide), CXTString<char>(utf8));
    EXPECT_EQ(XDecodeUtf8("\xFF"), L"\uFFFD");
    EXPECT_TRUE(XDecodeUtf8({}).IsEmpty() && XEncodeUtf8({}).IsEmpty());
}

TEST(TextEncodingTest, ConvertersReturnNullWhenTheyFail)
{
    EXPECT_STREQ(XCA2W("\xE9", CodePage(1252)), L"\xE9");
    EXPECT_STREQ(XCW2A(L"\xE9", CodePage(1252)), "\xE9");
    EXPECT_STREQ(XCA2W(""), L"");
    EXPECT_STREQ(XCW2A(L""), "");
    for (xStringEncoding noCodePage : {xEncodingUtf16, xEncodingUtf16BE, CodePage(99999)})
    {
        const XCA2W wide("a", noCodePage);
        const XCW2A narrow(L"a", noCodePage);
        EXPECT_FALSE(wide.IsValid() || narrow.IsValid()) << noCodePage;
        EXPECT_EQ(static_cast<const wchar_t*>(wide), nullptr);
        EXPECT_EQ(static_cast<const char*>(narrow), nullptr);
    }
    EXPECT_EQ(static_cast<const wchar_t*>(XCA2W(nullptr)), nullptr);
    EXPECT_EQ(static_cast<const char*>(XCW2A(nullptr)), nullptr);
    EXPECT_EQ(static_cast<const char*>(XCA2A(nullptr)), nullptr);

    std::string source = "\xFF bytes";
    const XCA2A same(source.c_str(), xEncodingUtf16);
    source[0] = 'x';
    EXPECT_STREQ(same, "\xFF bytes");
    EXPECT_STREQ(XCW2W(L"\xD800", xEncodingUtf8), L"\xD800");
}

TEST(TextEncodingTest, ThreadsConvertAtTheSameTime)
{
    OnThreads(4, [](int i) {
        // More code pages in turn than a thread keeps converters for.
        for (int round = 0; round < 200; ++round)
        {
            const auto codePage = static_cast<unsigned>(28591 + (i + round) % 9);
            CXTString<wchar_t> text;
            CXTString<char> bytes;
            ASSERT_TRUE(XDecodeText("\xA0z", 2, CodePage(codePage), text));
            ASSERT_EQ(text, L"\xA0z") << codePage;
            ASSERT_TRUE(XEncodeText(text, 2, CodePage(codePage), bytes));
            ASSERT_EQ(bytes, "\xA0z") << codePage;
        }
    });
}
} // namespace
