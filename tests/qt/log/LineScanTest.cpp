#include "qt/log/LineScan.h"

#include "files/CStdioFileEx.h"
#include "objects/CXFileException.h"
#include "qt/toolkit/QtText.h"
#include "tests/qt/log/LogFiles.h"

#include <gmock/gmock.h>

#include <random>

using testing::ElementsAre;

namespace
{
std::shared_ptr<TextFile> OpenText(const CXTString<wchar_t>& path)
{
    CXFileException error;
    return TextFile::Open(path, xEncodingUnknown, error);
}

void ScanAll(LineScan& scan)
{
    while (scan.Advance())
    {
    }
}

// The lines as the library reads them, for files whose encoding it detects by itself; NULs would cut them.
std::vector<QString> PlainLines(const CXTString<wchar_t>& path)
{
    std::vector<QString> lines;
    CStdioFileEx file(path, CXFile::modeRead | CXFile::shareDenyNone | CXFile::typeText);
    for (CXTString<wchar_t> line; file.ReadString(line);)
        lines.push_back(XToQString(line));
    return lines;
}

struct FoundLine
{
    std::uint64_t m_line;
    QString m_text;
};

// Every hit, read one by one by its number.
std::vector<FoundLine> HitsOf(const LineScan& scan)
{
    std::vector<FoundLine> hits;
    const std::uint64_t count = scan.GetTotals().m_hits;
    for (std::uint64_t hit = 0; hit < count; ++hit)
        scan.ForEachHit(hit, [&](const LinePlace& place) {
            char bytes[4096];
            bool failed = false;
            const std::size_t size = scan.GetFile()->Read(place.m_position, bytes, sizeof(bytes), failed);
            const TextForm& form = scan.GetFile()->GetForm();
            LineBytes line{0, size, size};
            if (!FindLine(bytes, size, 0, form, line) && size != 0 && bytes[size - 1] == '\r')
                line.m_size = size - 1;
            FoundLine found{place.m_line, {}};
            form.Decode(bytes, line.m_size, found.m_text);
            hits.push_back(found);
            return false;
        });
    return hits;
}

std::string RandomLog(std::mt19937& random, std::size_t lines, const std::vector<std::string>& ends)
{
    const char* const words[] = {"",  "error", "Warning: mesh",        "\tloaded", "    \xC3\xA9t\xC3\xA9",
                                 "x", "w",     "[4711 L2] \tdone mesh"};
    std::string bytes;
    for (std::size_t i = 0; i < lines; ++i)
    {
        for (auto count = random() % 5; count > 0; --count)
            bytes += words[random() % std::size(words)];
        bytes.append(random() % 50 == 0 ? 300 : 0, 'y');
        bytes += ends[random() % ends.size()];
    }
    return bytes + (random() % 2 == 0 ? "tail" : "");
}

void ExpectSameLines(const std::vector<QString>& plain, const LineMatcher& base, const LineMatcher& find,
                     const LineScan& scan)
{
    std::vector<FoundLine> expected;
    std::vector<std::uint64_t> bases;
    std::uint64_t baseCount = 0;
    for (std::size_t line = 0; line < plain.size(); ++line)
    {
        const bool isBase = base.Matches(plain[line]);
        if (isBase && find.Matches(plain[line]))
        {
            expected.push_back({line, plain[line]});
            bases.push_back(baseCount);
        }
        baseCount += isBase ? 1 : 0;
    }
    const LineScan::Totals totals = scan.GetTotals();
    ASSERT_EQ(plain.size(), totals.m_lines);
    ASSERT_EQ(baseCount, totals.m_base);
    const std::vector<FoundLine> hits = HitsOf(scan);
    ASSERT_EQ(expected.size(), hits.size());
    for (std::size_t i = 0; i < hits.size(); ++i)
    {
        ASSERT_EQ(expected[i].m_line, hits[i].m_line) << i;
        ASSERT_EQ(expected[i].m_text, hits[i].m_text) << i;
        ASSERT_EQ(i, scan.CountBeforeLine(hits[i].m_line));
        ASSERT_EQ(i + 1, scan.CountBeforeLine(hits[i].m_line + 1));
        ASSERT_EQ(i, scan.CountBeforeBase(bases[i]));
    }
    const std::vector<bool> parts = scan.FindParts(97);
    for (const std::uint64_t number : bases)
        ASSERT_TRUE(parts[static_cast<std::size_t>(number * 97 / baseCount)]) << number;
}

LineMatcher MatcherOf(const char16_t* text, PatternKind kind = PatternKind::Text, int columns = 0)
{
    return LineMatcher(LinePattern{kind, QString::fromUtf16(text), false}, columns);
}
} // namespace

TEST(LineScan, NumbersLinesAsTheLibraryReadsThem)
{
    const LogFolder folder;
    std::mt19937 random(20261122);
    const std::vector<std::vector<std::string>> ends = {
        {"\n"}, {"\r\n"}, {"\n", "\r\n"}, {"\r"}, {"\r", "\n", "\r\n"}, {"\n", "\n\r", "\r\r\n"}};
    const std::pair<LineMatcher, LineMatcher> matchers[] = {
        {{}, {}},
        {{}, MatcherOf(u"ERROR")},
        {MatcherOf(u"error"), MatcherOf(u"w*mesh", PatternKind::Wildcard)},
        {MatcherOf(u"", PatternKind::Text, 4), MatcherOf(u"done", PatternKind::Start)},
    };
    for (const auto& kinds : ends)
    {
        const CXTString<wchar_t> path = folder.Write("log.txt", RandomLog(random, 1000, kinds));
        const std::vector<QString> plain = PlainLines(path);
        for (const auto& [base, find] : matchers)
        {
            LineScan scan(OpenText(path), base, find);
            ScanAll(scan);
            ExpectSameLines(plain, base, find, scan);
            if (testing::Test::HasFatalFailure())
                FAIL() << testing::PrintToString(kinds) << ' ' << find.GetPattern().m_text.toStdString();
        }
    }
}

// The file grows in pieces that end anywhere, also between CR and LF and within a character.
TEST(LineScan, GoesOnWhereTheFileGrows)
{
    const LogFolder folder;
    std::mt19937 random(7);
    for (const char* const end : {"\n", "\r\n", "\r"})
    {
        const std::string bytes = "first" + std::string(end) + RandomLog(random, 400, {end});
        const CXTString<wchar_t> path = folder.Write("log.txt", bytes.substr(0, 7));
        const LineMatcher find = MatcherOf(u"warning");
        LineScan scan(OpenText(path), {}, find);
        for (std::size_t at = 7; at < bytes.size();)
        {
            ScanAll(scan);
            const std::size_t size = 1 + random() % 100;
            folder.Append("log.txt", bytes.substr(at, size));
            at += size;
        }
        ScanAll(scan);
        ExpectSameLines(PlainLines(path), {}, find, scan);
    }
}

// What lines hold is known from their text, whatever encoding they have in the file.
TEST(LineScan, FindsInBytesWhatTheTextHolds)
{
    const LogFolder folder;
    std::mt19937 random(42);
    const QString words[] = {QStringLiteral("Task"),
                             QStringLiteral("ta\u017F\u212A"),
                             QStringLiteral("mesh"),
                             QStringLiteral("M\u00C9SH"),
                             QStringLiteral("m\u00E9sh \uFFFD"),
                             QStringLiteral("[4711 L1] "),
                             QStringLiteral("\tdone 100%"),
                             QStringLiteral("k"),
                             QStringLiteral("  "),
                             QStringLiteral("\U0001F600 [")};
    const QString patterns[] = {QStringLiteral("task"), QStringLiteral("m\u00E9sh"), QStringLiteral("mesh  mesh"),
                                QStringLiteral("K"),    QStringLiteral("\uFFFD"),    QStringLiteral("\U0001F600"),
                                QStringLiteral("*"),    QStringLiteral("d?ne*sk"),   QStringLiteral("e 100% [4711"),
                                QStringLiteral("L1"),   QStringLiteral("absent"),    QString()};
    const unsigned pages[] = {xEncodingUtf8, xEncodingUtf8, 1252, 1200, 932, 65001};
    for (int round = 0; round < 100; ++round)
    {
        const auto encoding = static_cast<xStringEncoding>(pages[random() % std::size(pages)]);
        const unsigned often = random() % 2 == 0 ? 1 : 40;
        std::vector<QString> lines;
        std::string bytes;
        // Some are longer than what is read at once.
        for (auto left = random() % (round % 20 == 0 ? 12000 : 600); left > 0; --left)
        {
            QString line;
            for (auto count = random() % 5; count > 0; --count)
                line += random() % often == 0 ? words[random() % std::size(words)] : QStringLiteral("of other lines ");
            CXTString<char> encoded;
            CXTString<wchar_t> decoded;
            const CXTString<wchar_t> wide = XFromQString(line + u'\n');
            ASSERT_TRUE(XEncodeText(wide, static_cast<std::size_t>(wide.GetLength()), encoding, encoded));
            const std::string_view view = encoded;
            ASSERT_TRUE(XDecodeText(view.data(), view.size() - (encoding == 1200 ? 2 : 1), encoding, decoded));
            lines.push_back(XToQString(decoded));
            bytes += view;
        }
        const auto draw = [&] {
            const LinePattern pattern{static_cast<PatternKind>(random() % 4), patterns[random() % std::size(patterns)],
                                      random() % 2 == 0};
            return LineMatcher(pattern, random() % 8 == 0 ? 3 : 0);
        };
        const LineMatcher base = random() % 2 == 0 ? LineMatcher() : draw();
        const LineMatcher find = draw();
        CXFileException error;
        LineScan scan(TextFile::Open(folder.Write("log.txt", bytes), encoding, error), base, find);
        ScanAll(scan);
        std::vector<std::uint64_t> expected;
        std::vector<std::uint64_t> found;
        for (std::size_t line = 0; line < lines.size(); ++line)
        {
            if (base.Matches(lines[line]) && find.Matches(lines[line]))
                expected.push_back(line);
        }
        scan.ForEachHit(0, [&](const LinePlace& place) {
            found.push_back(place.m_line);
            return true;
        });
        ASSERT_EQ(expected, found) << "round " << round << ", encoding " << encoding << ": "
                                   << base.GetPattern().m_text.toStdString() << ", "
                                   << find.GetPattern().m_text.toStdString();
        ASSERT_EQ(expected.size(), scan.GetTotals().m_hits) << round;
        ASSERT_EQ(lines.size(), scan.GetTotals().m_lines) << round;
    }
    // What bytes are compared with takes no other character for a letter of ASCII.
    for (char16_t c = 0x80; c < 0xFFFF; ++c)
        ASSERT_TRUE(QChar(c).toCaseFolded() >= QChar(0x80) || c == 0x17F || c == 0x212A) << c;
}

TEST(LineScan, KeepsFewPlacesWhateverTheFile)
{
    const LogFolder folder;
    // 150 MiB: lines as long as the first distance between places, until there are too many.
    {
        std::ofstream file(folder.Path("log.txt"), std::ios::binary);
        const std::string line = std::string(4095, 'a') + "\n";
        for (int i = 0; i < 38400; ++i)
            file << (i == 20000 ? "needle" + line : line);
    }
    LineScan scan(OpenText(CXTString<wchar_t>(folder.Path("log.txt").wstring())), {}, {});
    while (scan.Advance())
        ASSERT_LE(scan.GetTotals().m_places, LineScan::kMaximumPlaces);
    EXPECT_EQ(38400U, scan.GetTotals().m_lines);
    EXPECT_LT(LineScan::kMaximumPlaces / 3, scan.GetTotals().m_places);
    for (const std::uint64_t line : {0U, 1U, 19999U, 20000U, 20001U, 38399U})
        scan.ForEachHit(line, [&](const LinePlace& place) {
            EXPECT_EQ(line, place.m_line);
            EXPECT_EQ(line * 4096 + (line > 20000 ? 6 : 0), place.m_position);
            return false;
        });
}

TEST(LineScan, FindsInLongLinesWhatTheirPiecesShare)
{
    const LogFolder folder;
    const std::string bytes =
        "short\n" + std::string(256 * 1024 - 9, 'a') + "needle" + std::string(700000, 'b') + "\nlast needle";
    const CXTString<wchar_t> path = folder.Write("log.txt", bytes);
    LineScan scan(OpenText(path), {}, MatcherOf(u"Needle"));
    ScanAll(scan);
    std::vector<std::uint64_t> lines;
    scan.ForEachHit(0, [&](const LinePlace& place) {
        lines.push_back(place.m_line);
        return true;
    });
    EXPECT_THAT(lines, ElementsAre(1U, 2U));
    EXPECT_EQ(3U, scan.GetTotals().m_lines);

    LineScan start(OpenText(path), {}, MatcherOf(u"needle", PatternKind::Start));
    ScanAll(start);
    EXPECT_EQ(0U, start.GetTotals().m_hits); // within a line is not at its start
}

TEST(LineMatcher, KnowsThePrefixOfTheLibrarysLog)
{
    struct
    {
        const char16_t* m_line;
        qsizetype m_size;
        const char16_t* m_level;
        int m_indentation;
    } const cases[] = {
        {u"[2026-11-22T13:45:10.123Z 4711 L2] \t\ttext", 35, u"L2", 8},
        {u"[4711 L-] text", 10, u"L-", 0},
        {u"[L12]  text", 6, u"L12", 1},
        {u"[2026-11-22T13:45:10.123Z] ", 27, u"", kNoIndentation},
        {u"[L2 4711] text", 0, u"", 0}, // not in this order
        {u"[2026-11-22] text", 0, u"", 0},
        {u"[] text", 0, u"", 0},
        {u"[4711]text", 0, u"", 0},
        {u" \ttext", 0, u"", 4},
        {u"", 0, u"", kNoIndentation},
    };
    for (const auto& [line, size, level, indentation] : cases)
    {
        const LinePrefix prefix = FindPrefix(line);
        EXPECT_EQ(size, prefix.m_size) << QString::fromUtf16(line).toStdString();
        EXPECT_EQ(QStringView(level), prefix.m_level) << QString::fromUtf16(line).toStdString();
        EXPECT_EQ(indentation, IndentationOf(line)) << QString::fromUtf16(line).toStdString();
    }
}

TEST(LineMatcher, MatchesByKind)
{
    constexpr QStringView kLine = u"[2026-11-22T13:45:10.123Z 4711 L2] \tLoaded Mesh.obj";
    struct
    {
        PatternKind m_kind;
        const char16_t* m_text;
        bool m_isCaseSensitive;
        bool m_matches;
    } const cases[] = {
        {PatternKind::Text, u"mesh", false, true},
        {PatternKind::Text, u"mesh", true, false},
        {PatternKind::Text, u"Mesh", true, true},
        {PatternKind::Wildcard, u"load*.obj", false, true},
        {PatternKind::Wildcard, u"load*.OBJ", true, false},
        {PatternKind::Wildcard, u"M?sh", true, true},
        {PatternKind::Wildcard, u"load?.obj", false, false},
        {PatternKind::Start, u"[2026", false, true},
        {PatternKind::Start, u"\tloa", false, true},
        {PatternKind::Start, u"loaded", false, true},
        {PatternKind::Start, u"mesh", false, false},
        {PatternKind::Prefix, u"L2", false, true},
        {PatternKind::Prefix, u"l3 4711", false, true},
        {PatternKind::Prefix, u"L1", false, false},
        {PatternKind::Prefix, u"47", false, false},
        {PatternKind::Prefix, u"2026-11-22t13", false, true},
        {PatternKind::Prefix, u"2026-11-23", false, false},
        {PatternKind::Prefix, u"L-", false, false},
    };
    for (const auto& [kind, text, isCaseSensitive, matches] : cases)
        EXPECT_EQ(matches, LineMatcher({kind, QString::fromUtf16(text), isCaseSensitive}).Matches(kLine))
            << QString::fromUtf16(text).toStdString();
    EXPECT_FALSE(MatcherOf(u"L2", PatternKind::Prefix).Matches(u"Loaded L2"));
    const LineMatcher::Ranges expected = {{0, 2}, {3, 2}};
    EXPECT_EQ(expected, MatcherOf(u"AA").FindRanges(u"aa aaa"));
}
