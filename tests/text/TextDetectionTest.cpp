#include "text/TextDetection.h"

#include "files/TextFileInfo.h"
#include "tests/support/FileFailure.h"
#include "tests/support/TempFolder.h"
#include "tests/support/TextTools.h"
#include "text/TextLoss.h"

static std::ostream& operator<<(std::ostream& out, const XTextLoss& loss)
{
    return out << loss.m_count << " from " << loss.m_first;
}
static bool operator==(const XTextLoss& left, const XTextLoss& right)
{
    return left.m_count == right.m_count && left.m_first == right.m_first;
}

namespace
{
using namespace tev::test;

constexpr xStringEncoding kForms[] = {xEncodingUtf8, xEncodingUtf16, xEncodingUtf16BE, kUtf32, kUtf32BE};

std::string Encoded(const std::wstring& text, xStringEncoding encoding)
{
    CXTString<char> bytes;
    EXPECT_TRUE(XEncodeText(text.data(), text.size(), encoding, bytes));
    return ToStd(bytes);
}

XTextInfo Examined(const std::string& bytes)
{
    return XExamineText(ExactBlock(bytes).get(), bytes.size());
}

/// Everything that is known, on one line.
std::string Describe(const XTextInfo& info)
{
    std::string text;
    switch (static_cast<unsigned>(info.m_encoding))
    {
    case xEncodingUtf8:
        text = "utf8";
        break;
    case xEncodingUtf16:
        text = "utf16";
        break;
    case xEncodingUtf16BE:
        text = "utf16be";
        break;
    case kUtf32:
        text = "utf32";
        break;
    case kUtf32BE:
        text = "utf32be";
        break;
    default:
        text = info.m_encoding == xEncodingUnknown ? "unknown" : "?";
    }
    static const char* const kCertainties[] = {"none", "weak", "strong", "certain"};
    text += " "s + kCertainties[static_cast<unsigned>(info.m_certainty)] + " mark " + std::to_string(info.m_markSize);
    text += info.m_isValid ? " valid" : " invalid";
    text += std::string(info.m_isAscii ? " ascii" : "") + (info.m_holdsNul ? " nul" : "") + " as";
    const bool valid[] = {info.m_isUtf8, info.m_isUtf16, info.m_isUtf16BE, info.m_isUtf32, info.m_isUtf32BE};
    for (std::size_t i = 0; i < 5; ++i)
        text += valid[i] ? " " + std::to_string(i) : "";
    text += " lf " + std::to_string(info.m_lineEnds.m_lf) + " crlf " + std::to_string(info.m_lineEnds.m_crLf) + " cr " +
            std::to_string(info.m_lineEnds.m_cr) + " lines " + std::to_string(info.m_lineCount);
    EXPECT_EQ(info.m_lineEnds.Total(), info.m_lineEnds.m_lf + info.m_lineEnds.m_crLf + info.m_lineEnds.m_cr);
    return text;
}

const wchar_t* const kTexts[] = {
    L"plain ASCII,\nin lines",
    L"caf\u00E9 \u20AC \u00FC\u00DF\r\n\r\nand more\r\n",
    L"\u0442\u0430\u043B\u044C\u043A\u043E\r\u0438 \u0435\u0449\u0451\r",
    L"\u4E00\u4E2D\u6587\u6587\u672C\u3000\u7B2C\u4E00\u884C\n\u7B2C\u4E8C\u884C\u3002\u4E00\n",
    L"\u30C6\u30AD\u30B9\u30C8 \u306E \u884C\n",
    L"\u05E9\u05DC\u05D5\u05DD \U0001F600\U0001F601 \u05E2\u05D5\u05DC\u05DD\n",
};

TEST(TextDetectionTest, EveryUnicodeFormIsKnownByItsMarkAndWithoutOne)
{
    for (const std::wstring text : kTexts)
    {
        for (const xStringEncoding encoding : kForms)
        {
            SCOPED_TRACE(testing::PrintToString(text) + " " + std::to_string(encoding));
            const std::string bare = Encoded(text, encoding);
            const std::string marked = Encoded(L"\xFEFF" + text, encoding);
            for (const std::string& bytes : {bare, marked})
            {
                const XTextInfo info = Examined(bytes);
                EXPECT_EQ(info.m_encoding, encoding);
                EXPECT_TRUE(info.m_isValid);
                EXPECT_GE(info.m_certainty, &bytes == &marked ? XTextCertainty::Certain : XTextCertainty::Strong);
                EXPECT_EQ(info.m_byteCount, bytes.size());
            }
            EXPECT_EQ(Examined(marked).m_markSize, marked.size() - bare.size());
            EXPECT_EQ(XFindTextMark(marked.data(), marked.size()).m_encoding, encoding);
            EXPECT_EQ(XFindTextMark(bare.data(), bare.size()).m_size, 0u);
            const XTextInfo withMark = Examined(marked);
            const XTextInfo utf8 = Examined(Encoded(text, xEncodingUtf8));
            EXPECT_EQ(std::tie(withMark.m_lineEnds.m_lf, withMark.m_lineEnds.m_crLf, withMark.m_lineEnds.m_cr,
                               withMark.m_lineCount),
                      std::tie(utf8.m_lineEnds.m_lf, utf8.m_lineEnds.m_crLf, utf8.m_lineEnds.m_cr, utf8.m_lineCount));
        }
    }
}

TEST(TextDetectionTest, BytesSayWhatTheyCanBe)
{
    const std::pair<std::string, const char*> cases[] = {
        {"", "utf8 certain mark 0 valid ascii as 0 1 2 3 4 lf 0 crlf 0 cr 0 lines 0"},
        {"abc", "utf8 certain mark 0 valid ascii as 0 lf 0 crlf 0 cr 0 lines 1"},
        {"a\nb\r\n\rc\r\n", "utf8 certain mark 0 valid ascii as 0 lf 1 crlf 2 cr 1 lines 4"},
        {"one\x01", "utf8 weak mark 0 valid ascii as 0 1 2 lf 0 crlf 0 cr 0 lines 1"},
        {"\x1B[1m a\x1A", "utf8 certain mark 0 valid ascii as 0 lf 0 crlf 0 cr 0 lines 1"},
        {"h\xC3\xA9", "utf8 weak mark 0 valid as 0 lf 0 crlf 0 cr 0 lines 1"},
        {"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80", "utf8 strong mark 0 valid as 0 lf 0 crlf 0 cr 0 lines 1"},
        {"\xC2\xBF\xED\x9F\xBF\xF4\x8F\xBF\xBF\xE0\xA0\x80\xF0\x90\x80\x80",
         "utf8 strong mark 0 valid as 0 1 2 lf 0 crlf 0 cr 0 lines 1"},
        {"h\xE9\n", "unknown none mark 0 invalid as lf 1 crlf 0 cr 0 lines 1"},
        {"caf\xE9\n\n", "unknown none mark 0 invalid as 1 2 lf 2 crlf 0 cr 0 lines 2"},
        {"\xE2\x82", "unknown none mark 0 invalid as 1 2 lf 0 crlf 0 cr 0 lines 1"},
        {"\xC0\xAF", "unknown none mark 0 invalid as 1 2 lf 0 crlf 0 cr 0 lines 1"},
        {"\xED\xA0\x80", "unknown none mark 0 invalid as lf 0 crlf 0 cr 0 lines 1"},
        {"\xF4\x90\x80\x80", "unknown none mark 0 invalid as 1 2 lf 0 crlf 0 cr 0 lines 1"},
        {"a\0b\n"s, "unknown none mark 0 invalid ascii nul as 0 1 2 lf 1 crlf 0 cr 0 lines 1"},
        {"one, two and three\0"s, "unknown none mark 0 invalid ascii nul as 0 lf 0 crlf 0 cr 0 lines 1"},
        {std::string(8, '\0'), "unknown none mark 0 invalid ascii nul as 0 1 2 3 4 lf 0 crlf 0 cr 0 lines 1"},
        {"\x01\0\x02\0\x01\0\x02\0"s, "unknown none mark 0 invalid ascii nul as 0 1 2 3 lf 0 crlf 0 cr 0 lines 1"},
        {"a\0b\0"s, "utf16 weak mark 0 valid ascii nul as 0 1 2 lf 0 crlf 0 cr 0 lines 1"},
        {"\0a\0\r\0\n\0b"s, "utf16be strong mark 0 valid ascii nul as 0 1 2 lf 0 crlf 1 cr 0 lines 2"},
        {"\0a\0 \0b."s, "unknown none mark 0 invalid ascii nul as 0 lf 0 crlf 0 cr 0 lines 1"},
        {"\x01\0\0\0a\0\0\0"s, "unknown none mark 0 invalid ascii nul as 0 1 2 3 lf 0 crlf 0 cr 0 lines 1"},
        {"a\0\0\0"s, "utf32 weak mark 0 valid ascii nul as 0 1 2 3 lf 0 crlf 0 cr 0 lines 1"},
        {"\0\0\0a\0\0\0\n"s, "utf32be strong mark 0 valid ascii nul as 0 1 2 4 lf 1 crlf 0 cr 0 lines 1"},
        {"a\0\0\xD8"s, "unknown none mark 0 invalid nul as 2 lf 0 crlf 0 cr 0 lines 1"},
        // The Cyrillic word for "hello": valid ASCII, with controls.
        {"\x3F\x04\x40\x04\x38\x04\x32\x04\x35\x04\x42\x04", "utf16 weak mark 0 valid ascii as 0 1 2 lf 0 crlf 0 cr 0 "
                                                             "lines 1"},
        {"\xEF\xBB\xBF", "utf8 certain mark 3 valid ascii as 0 lf 0 crlf 0 cr 0 lines 0"},
        {"\xEF\xBB\xBF\xFF\n", "utf8 certain mark 3 invalid as lf 1 crlf 0 cr 0 lines 1"},
        {"\xFF\xFE", "utf16 certain mark 2 valid as 1 lf 0 crlf 0 cr 0 lines 0"},
        {"\xFF\xFE\n\0x"s, "utf16 certain mark 2 invalid as lf 1 crlf 0 cr 0 lines 2"},
        {"\xFF\xFE\n\0\x3D\xD8"s, "utf16 certain mark 2 invalid as lf 1 crlf 0 cr 0 lines 2"},
        {"\xFE\xFF\0\n\n\0"s, "utf16be certain mark 2 valid as 2 lf 1 crlf 0 cr 0 lines 2"},
        {"\xFF\xFE\0\0"s, "utf32 certain mark 4 valid as 3 lf 0 crlf 0 cr 0 lines 0"},
        {"\xFF\xFE\0\0\r\0\0\0\n\0\0\0x"s, "utf32 certain mark 4 invalid as lf 0 crlf 1 cr 0 lines 2"},
        {"\0\0\xFE\xFF\0\0\xD8\0"s, "utf32be certain mark 4 invalid as lf 0 crlf 0 cr 0 lines 1"},
    };
    for (const auto& [bytes, expected] : cases)
        EXPECT_EQ(Describe(Examined(bytes)), expected) << testing::PrintToString(bytes);
    EXPECT_EQ(Describe(XExamineText(nullptr, 7)), Describe(XExamineText("", 0)));
}

TEST(TextDetectionTest, BlocksMakeNoDifference)
{
    std::vector<std::string> texts = {"\xEF\xBB\xBF", "\xFF\xFE", "a\r\nb\xC3", "\xE2\x82\xACx\xE2\x82"};
    for (const std::wstring text : kTexts)
    {
        for (const xStringEncoding encoding : kForms)
        {
            texts.push_back(Encoded(text, encoding));
            texts.push_back(Encoded(L"\xFEFF" + text, encoding) + "x");
        }
    }
    for (const std::string& bytes : texts)
    {
        const std::string whole = Describe(Examined(bytes));
        for (std::size_t size = 1; size <= 9; ++size)
        {
            CXTextExaminer examiner;
            for (std::size_t at = 0; at < bytes.size(); at += size)
            {
                // Asking between the blocks changes nothing, and answers for the part.
                ASSERT_EQ(Describe(examiner.GetInfo()), Describe(Examined(bytes.substr(0, at))));
                const std::string block = bytes.substr(at, size);
                examiner.Add(ExactBlock(block).get(), block.size());
            }
            ASSERT_EQ(Describe(examiner.GetInfo()), whole) << testing::PrintToString(bytes) << " by " << size;
        }
    }
    // More than is looked at in one step, with the one fault and the one line end across its border.
    std::string longText(16 * 1024 - 1, 'x');
    EXPECT_EQ(Describe(Examined(longText + "\r\n")), "utf8 certain mark 0 valid ascii as 0 lf 0 crlf 1 cr 0 lines 1");
    EXPECT_TRUE(Examined(longText + "\xE2\x82\xAC").m_isUtf8);
    EXPECT_FALSE(Examined(longText + "\xE2\x82\x2C").m_isUtf8);
}

TEST(TextDetectionTest, FilesAreExaminedFromWhereTheyStand)
{
    const TempFolder folder;
    const std::wstring path = folder.WriteFile("file", "\xFF\xFE" + Encoded(L"one\r\ntwo", xEncodingUtf16));
    EXPECT_EQ(Describe(XExamineTextFile(path.c_str())), "utf16 certain mark 2 valid as 1 lf 0 crlf 1 cr 0 lines 2");
    CXFile file(path.c_str(), CXFile::modeRead);
    file.Seek(2, CXFile::begin);
    EXPECT_EQ(Describe(XExamineTextFile(file)),
              "utf16 strong mark 0 valid ascii nul as 0 1 2 lf 0 crlf 1 cr 0 lines 2");
    const auto missing = Caught([&path] { static_cast<void>(XExamineTextFile((path + L"/missing").c_str())); });
    EXPECT_EQ(ToStd(missing->GetFileName()), path + L"/missing");
}

TEST(TextDetectionTest, ConversionsCountWhatTheyLoseAndSayWhereItBegins)
{
    const struct
    {
        std::string m_bytes;
        unsigned m_encoding;
        XTextLoss m_loss;
    } decoded[] = {
        {"", xEncodingUtf8, {0, 0}},
        {"ok \xE2\x82\xAC \xEF\xBF\xBD", xEncodingUtf8, {0, 0}},
        {"ok \xEF\xBF\xBD\xFF\xE2\x82z\x80", xEncodingUtf8, {3, 6}},
        {"ok \xEF\xBF", xEncodingUtf8, {1, 3}},
        {"a\0\xFD\xFF\0\xD8"s, xEncodingUtf16, {0, 0}},
        {"a\0\xFD\xFFz"s, xEncodingUtf16, {1, 4}},
        {"\0a\xFF\xFDz"s, xEncodingUtf16BE, {1, 4}},
        {"a\0\0\0\xFD\xFF\0\0\0\xD8\0\0\0\0\x11\0z"s, 12000, {3, 8}},
        {"\0\x11\0\0\0\0\xFF\xFD\0\0\0\x61"s, 12001, {1, 0}},
        {"a\x81z\x8D", 1252, {2, 1}},
        {"\x93\xFA\x93", 932, {1, 2}},
        {"\x84\x31\xA4\x37\x94\x39\xFC", 54936, {1, 4}}, // the first is a U+FFFD
    };
    for (const auto& each : decoded)
    {
        CXTString<wchar_t> text;
        CXTString<wchar_t> plain;
        XTextLoss loss = {7, 7};
        const auto block = ExactBlock(each.m_bytes);
        EXPECT_TRUE(XDecodeText(block.get(), each.m_bytes.size(), CodePage(each.m_encoding), text, loss));
        EXPECT_TRUE(XDecodeText(block.get(), each.m_bytes.size(), CodePage(each.m_encoding), plain));
        EXPECT_EQ(loss, each.m_loss) << testing::PrintToString(each.m_bytes);
        EXPECT_EQ(ToStd(text), ToStd(plain));
    }
    const std::wstring beyond = {L'?', L'\xD83D', L'\xDE00', L'\xDE00', static_cast<wchar_t>(0x110000), L'\x20AC'};
    const struct
    {
        std::wstring m_text;
        unsigned m_encoding;
        XTextLoss m_loss;
    } encoded[] = {
        {L"", xEncodingUtf8, {0, 0}},
        {beyond, xEncodingUtf8, {2, 3}},
        {L"\U0010FFFF", 12000, {0, 0}},
        {L"a\xD83D", xEncodingUtf8, {1, 1}},
        {beyond, xEncodingUtf16, {1, 4}},
        {beyond, xEncodingUtf16BE, {1, 4}},
        {beyond, 12000, {2, 3}},
        {beyond, 12001, {2, 3}},
        {beyond, 1252, {3, 1}},
        {beyond, 28591, {4, 1}},
        {L"?a\x4E2Dz\x4E2D", 1252, {2, 2}},
        {L"\xDE00\x20AC", 28591, {2, 0}},
        {L"\xD83D\xDE00\x4E2D\xD83D", 932, {2, 0}},
        {L"ab\U000E0067", 1252, {1, 2}},
    };
    for (const auto& each : encoded)
    {
        CXTString<char> bytes;
        CXTString<char> plain;
        XTextLoss loss = {7, 7};
        EXPECT_TRUE(
            XEncodeText(ExactBlock(each.m_text).get(), each.m_text.size(), CodePage(each.m_encoding), bytes, loss));
        EXPECT_TRUE(XEncodeText(each.m_text.data(), each.m_text.size(), CodePage(each.m_encoding), plain));
        EXPECT_EQ(loss, each.m_loss) << testing::PrintToString(each.m_text) << each.m_encoding;
        EXPECT_EQ(ToStd(bytes), ToStd(plain));
    }
    const AnsiCodePage western(1252);
    CXTString<char> bytes;
    CXTString<wchar_t> text("before");
    XTextLoss loss = {7, 7};
    EXPECT_TRUE(XEncodeText(L"\x20AC\x4E2D", 2, xEncodingAnsi, bytes, loss));
    EXPECT_EQ(loss, (XTextLoss{1, 1}));
    for (const unsigned unusable : {99999u, 5u})
    {
        text = L"before";
        EXPECT_FALSE(XDecodeText("a", 1, CodePage(unusable), text, loss));
        EXPECT_TRUE(text.IsEmpty());
        for (const wchar_t* const one : {L"a", L"\xD800"})
        {
            bytes = "before";
            EXPECT_FALSE(XEncodeText(one, 1, CodePage(unusable), bytes, loss));
            EXPECT_TRUE(bytes.IsEmpty());
        }
    }
    for (const xStringEncoding encoding : {xEncodingUtf8, xEncodingUtf16, CodePage(1252)})
    {
        EXPECT_FALSE(XDecodeText(nullptr, 1, encoding, text, loss));
        EXPECT_FALSE(XEncodeText(nullptr, 1, encoding, bytes, loss));
    }
    EXPECT_EQ(loss, XTextLoss{});
}
} // namespace
