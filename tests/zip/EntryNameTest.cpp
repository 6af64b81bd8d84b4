#include "zip/EntryName.h"

#include "tests/support/Testing.h"

namespace
{
using tev::SafeEntryName;

TEST(EntryName, KeepsWhatIsSafeAndTidiesIt)
{
    const std::tuple<std::string, std::string, bool> cases[] = {
        {"a.txt", "a.txt", false},
        {"a/b/c.txt", "a/b/c.txt", false},
        {"./a//./b/", "a/b", true},
        {"..a/b../...c", "..a/b../...c", false},
        {"\xC3\xA9t\xC3\xA9/\xF0\x9F\x98\x80 \xEF\xBF\xBD", "\xC3\xA9t\xC3\xA9/\xF0\x9F\x98\x80 \xEF\xBF\xBD", false},
        {"10:30.txt", "10:30.txt", false},
        {"/etc/passwd", "etc/passwd", false},
        {"//host/share/a", "host/share/a", false},
        {"C:/a", "a", false},
        {"c:a", "a", false},
        {"/D:/z:./b/", "b", true},
        {"console/com10.txt/null/com/com1a/lpt", "console/com10.txt/null/com/com1a/lpt", false},
        {std::string(255, 'n'), std::string(255, 'n'), false},
    };
    for (const auto& [name, path, isFolder] : cases)
    {
        const auto safe = SafeEntryName(name);
        ASSERT_TRUE(safe) << name;
        EXPECT_EQ(safe->m_path, path);
        EXPECT_EQ(safe->m_isFolder, isFolder) << name;
    }
}

TEST(EntryName, SkipsWhatCouldLeadElsewhere)
{
    using namespace std::string_literals;
    std::string deep = "d";
    for (int i = 0; i < 256; ++i)
        deep += "/d";
    std::string longName = std::string(255, 'n');
    while (longName.size() < 4096)
        longName += "/" + std::string(255, 'n');
    const std::string cases[] = {
        "",
        "/",
        ".",
        "./",
        "..",
        "../a",
        "a/..",
        "a/../../b",
        "a/.. /b",
        "a/ . ./b",
        "...",
        "/../a",
        "C:../a",
        "C:/..",
        "Z:",
        "a\\b",
        "..\\a",
        "\\\\host\\a",
        "a\0b"s,
        "a\0"s,
        "\xFF",
        "a/\xC3",
        "\xC0\xAE\xC0\xAE/a",
        "\xED\xA0\x80",
        "\xF0\x90\x80",
        std::string(256, 'n'),
        deep,
    };
    for (const std::string& name : cases)
        EXPECT_FALSE(SafeEntryName(name)) << name;
}

TEST(EntryName, DevicesAreSkippedWhereASystemHasThem)
{
    const char* const cases[] = {
        "nul",      "a/CON",       "con.txt/b", "Aux .tar.gz", "lpt9",
        "com0.obj", "COM\xC2\xB9", "conin$",    "CLOCK$.x",    "prn:stream",
    };
    for (const char* const name : cases)
    {
        EXPECT_TRUE(SafeEntryName(name, {false})) << name;
        EXPECT_FALSE(SafeEntryName(name, {true})) << name;
    }
    EXPECT_TRUE(SafeEntryName("console/com10.txt/null/com/com1a/lpt", {true}));
}

template <class Table, class = void>
constexpr bool kIsOrdered = false;
template <class Table>
constexpr bool kIsOrdered<Table, std::void_t<typename Table::key_compare>> = true;

TEST(EntryName, NamesAreTakenOnce)
{
    const struct
    {
        const char* m_path;
        bool m_isFolder, m_isTaken;
        bool m_isTakenExactly = m_isTaken;
    } steps[] = {
        {"a.txt", false, false},
        {"A.TXT", false, true, false},
        {"a.txt", false, true},
        {"a.txt. ", false, true, false},
        {"Folder/a.txt", false, false},
        {"folder/b.txt", false, false},
        {"FOLDER/B.txt", false, true, false},
        {"folder", true, false},
        {"Folder", false, true},
        {"a.TXT/x", false, true, false},
        {"a.txt", true, true},
        {"\xC3\x89.txt", false, false}, // letters with marks, Greek final sigma, and beyond 16 bits
        {"\xC3\xA9.txt", false, true, false},
        {"\xCE\xA3", false, false},
        {"\xCF\x82", false, true, false},
        {"\xF0\x90\x90\x80", false, false},
        {"\xF0\x90\x90\xA8", false, true, false},
        {"ab/c", false, false},
        {"a/bc", false, false},
    };
    static_assert(kIsOrdered<tev::EntryNames::Table>, "chosen names would take quadratic time");
    tev::EntryNames loose(tev::EntryNames::Compared::Loosely);
    tev::EntryNames exact(tev::EntryNames::Compared::Exactly);
    for (const auto& [path, isFolder, isTaken, isTakenExactly] : steps)
    {
        EXPECT_EQ(!loose.Claim(path, isFolder), isTaken) << path;
        EXPECT_EQ(!exact.Claim(path, isFolder), isTakenExactly) << path;
    }
}
} // namespace
