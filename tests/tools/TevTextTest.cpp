#include "tests/support/Iconv.h"
#include "tests/support/TempFolder.h"
#include "tests/tools/TevRunner.h"

namespace
{
using namespace tev::test;

constexpr std::size_t kBlock = 1024 * 1024; // the tool reads in blocks of this size

std::string Utf16BE(const std::string& utf8)
{
    return Iconv("UTF-16BE", "UTF-8", utf8);
}

std::string Repeat(const std::string& text, std::size_t count)
{
    std::string result;
    while (count-- > 0)
        result += text;
    return result;
}

class TevText : public testing::Test
{
protected:
    std::string Write(const std::string& name, const std::string& bytes)
    {
        m_folder.WriteFile(name, bytes);
        return Path(name);
    }
    std::string Path(const std::string& name) const { return m_folder.Path(name).string(); }
    std::string Read(const std::string& name) const { return m_folder.ReadFile(name); }
    std::size_t FileCount() const { return m_folder.Names().size(); }

    TempFolder m_folder;
};

TEST_F(TevText, InfoNamesEncodingMarkLineEndsAndLines)
{
    struct Case
    {
        std::string m_bytes;
        const char* m_expected; // encoding, mark, line ends, lines
    };
    const Case cases[] = {
        {"", "empty\tno\tnone\t0"},
        {"one", "ASCII\tno\tnone\t1"},
        {"one\ntwo", "ASCII\tno\tLF\t2"},
        {"one\r\n\r\n", "ASCII\tno\tCRLF\t2"},
        {"one\rtwo\r", "ASCII\tno\tCR\t2"},
        {"a\nb\r\nc\r\nd\re", "ASCII\tno\tmixed: 1 LF, 2 CRLF, 1 CR\t5"},
        {"\n\r\n", "ASCII\tno\tmixed: 1 LF, 1 CRLF\t2"},
        {"h\u00E9\n", "UTF-8\tno\tLF\t1"},
        {"h\u00E9\xE9\n", "8-bit, code page unknown\tno\tLF\t1"},
        {"cut \xE2\x82", "8-bit, code page unknown\tno\tnone\t1"},
        {"surrogate \xED\xA0\x80\n", "8-bit, code page unknown\tno\tLF\t1"},
        {"overlong \xC0\xAF\n", "8-bit, code page unknown\tno\tLF\t1"},
        {"real \xEF\xBF\xBD\n", "UTF-8\tno\tLF\t1"},
        {"a\0b\n"s, "unknown, holds NUL bytes\tno\tLF\t1"},
        {"\xEF\xBB\xBF", "UTF-8\tyes\tnone\t0"},
        {"\xEF\xBB\xBFone\n", "UTF-8\tyes\tLF\t1"},
        {"\xEF\xBB\xBF\xFF\n", "UTF-8, damaged\tyes\tLF\t1"},
        {"\xFF\xFE" + Utf16("one\r\n\u0A0D\u0D0A\U0001F600\r\n"), "UTF-16 little-endian\tyes\tCRLF\t2"},
        {"\xFF\xFE" + Utf16("one\n") + "x", "UTF-16 little-endian\tyes\tLF\t2"},
        {"\xFE\xFF" + Utf16BE("\u0A00\u000A\u0D00\rx"), "UTF-16 big-endian\tyes\tmixed: 1 LF, 1 CR\t3"},
        {Utf16("one\r\ntwo, three\r\n"), "UTF-16 little-endian\tno\tCRLF\t2"},
        {"a\0b\0"s, "probably UTF-16 little-endian\tno\tnone\t1"},
        {Iconv("UTF-32BE", "UTF-8", "\u20AC\n"), "UTF-32 big-endian\tno\tLF\t1"},
        {"\xFF\xFE\0\0"s + Iconv("UTF-32LE", "UTF-8", "\u20AC\n"), "UTF-32 little-endian\tyes\tLF\t1"},
        {std::string(kBlock - 1, 'a') + "\r\nb", "ASCII\tno\tCRLF\t2"},
        {std::string(kBlock - 1, 'a') + "\r", "ASCII\tno\tCR\t1"},
        {std::string(kBlock - 2, 'a') + "\u20AC\n", "UTF-8\tno\tLF\t1"},
        {"\xFF\xFE" + Utf16(std::string(kBlock / 2 - 1, 'a') + "\r\nb"), "UTF-16 little-endian\tyes\tCRLF\t2"},
    };
    std::vector<std::string> arguments = {"text", "info"};
    std::string expected;
    for (const Case& c : cases)
    {
        arguments.push_back(Write(std::to_string(arguments.size()), c.m_bytes));
        expected += arguments.back() + "\t" + c.m_expected + "\t" + std::to_string(c.m_bytes.size()) + "\n";
    }
    EXPECT_THAT(RunTev(arguments), FieldsAre(0, expected, ""));
}

TEST_F(TevText, InfoPrintsTablesAndJson)
{
    const std::string name = Write("caf\u00E9 \"1\".txt", "one\r\ntwo\n");
    EXPECT_EQ(RunTev({"text", "info", "--json", name}).m_output,
              "{\"file\": \"" + Path("caf\u00E9 \\\"1\\\".txt") +
                  "\", \"encoding\": \"ASCII\", \"mark\": false, \"lf\": 1, \"crlf\": 1, \"cr\": 0, \"lines\": 2, "
                  "\"bytes\": 9}\n");
    EXPECT_EQ(RunTev({"text", "info", "--format=table"}, "\u00E9\r\n").m_output,
              "FILE  ENCODING  MARK  LINE ENDS  LINES  BYTES\n"
              "-     UTF-8     no    CRLF           1      4\n");
}

TEST_F(TevText, CatPrintsUtf8WithLineFeeds)
{
    struct Case
    {
        std::string m_bytes;
        std::vector<std::string> m_options;
        std::string m_expected;
    };
    const Case cases[] = {
        {"", {}, ""},
        {"one\r\ntwo", {}, "one\ntwo\n"},
        {"one\rtwo\r\rthree", {}, "one\ntwo\n\nthree\n"},
        {"caf\u00E9\n", {}, "caf\u00E9\n"},
        {"\xEF\xBB\xBF"s + "caf\u00E9\n", {"--from", "1252"}, "caf\u00E9\n"},
        {"\xFF\xFE" + Utf16("\u20AC \U0001F600\r\nb"), {"--from", "1252"}, "\u20AC \U0001F600\nb\n"},
        {"\xFE\xFF" + Utf16BE("\u20AC \U0001F600\r\nb"), {"--from", "utf-16be"}, "\u20AC \U0001F600\nb\n"},
        {"\xFE\xFF" + Utf16BE("\u20AC\rb\rc"), {}, "\u20AC\nb\nc\n"},
        {"\xFE\xFF" + Utf16BE("one\n\uFEFFtwo\n"), {}, "one\n\uFEFFtwo\n"},
        {"\xFE\xFF" + Utf16BE("one\n\uFEFFtwo\n"), {"--lines", "2"}, "\uFEFFtwo\n"},
        {Utf16BE("\u20AC\r\nb\r\n"), {"--from", "UTF-16BE"}, "\u20AC\nb\n"},
        {Utf16("\u20AC\r\nb\r\n"), {"--from", "utf-16le"}, "\u20AC\nb\n"},
        {Utf16("\u20AC\r\nb\r\n"), {"--from", "1200"}, "\u20AC\nb\n"},
        {Utf16BE("\u20AC\r\nb\r\n"), {"--from", "1201"}, "\u20AC\nb\n"},
        {Iconv("UTF-32LE", "UTF-8", "\u20AC\r\n\u0A0Db\r\n"), {"--from", "12000"}, "\u20AC\n\u0A0Db\n"},
        {Iconv("UTF-32BE", "UTF-8", "\u20AC\r\n\u0A0Db\r\n"), {"--from", "cp12001"}, "\u20AC\n\u0A0Db\n"},
        {"\xFF\xFE\0\0"s + Iconv("UTF-32LE", "UTF-8", "\u20AC\r\nb"), {}, "\u20AC\nb\n"},
        {"\0\0\xFE\xFF"s + Iconv("UTF-32BE", "UTF-8", "\u20AC\r\nb"), {"--from", "1252"}, "\u20AC\nb\n"},
        {"\x80 \x93quoted\x94 caf\xE9\r\n", {"--from", "Windows-1252"}, "\u20AC \u201Cquoted\u201D caf\u00E9\n"},
        {"caf\xE9\r\n", {"--from", "latin1"}, "caf\u00E9\n"},
        {"\xA4 caf\xE9\n", {"--from=iso-8859-15"}, "\u20AC caf\u00E9\n"},
        {"\x93\xFA\x96\x7B\n", {"--from", "shift-jis"}, "\u65E5\u672C\n"},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(testing::PrintToString(c.m_bytes));
        std::vector<std::string> arguments = {"text", "cat", Write("input", c.m_bytes)};
        arguments.insert(arguments.end(), c.m_options.begin(), c.m_options.end());
        EXPECT_THAT(RunTev(arguments), FieldsAre(0, c.m_expected, ""));
        arguments[2] = "-";
        EXPECT_EQ(RunTev(arguments, c.m_bytes).m_output, c.m_expected);
    }
}

TEST_F(TevText, CatTakesLineRanges)
{
    const std::string name = Write("five", "1\n2\r\n3\n4\n5");
    const std::pair<const char*, const char*> ranges[] = {
        {"2-3", "2\n3\n"}, {"4-", "4\n5\n"},   {"-2", "1\n2\n"}, {"3", "3\n"},
        {"5-5", "5\n"},    {"4-99", "4\n5\n"}, {"6-", ""},       {"9999999999-", ""},
    };
    for (const auto& [range, expected] : ranges)
    {
        EXPECT_THAT(RunTev({"text", "cat", "--lines", range, name}), FieldsAre(0, expected, _)) << range;
    }
    for (const char* range : {"0", "3-2", "-", "a", "1-b", "2--3", "1,2", "0-3", "99999999999999999999"})
    {
        EXPECT_THAT(RunTev({"text", "cat", "--lines", range, name}),
                    FieldsAre(2, "", AllOf(StartsWith("tev: "), HasSubstr("--lines"))))
            << range;
    }
}

TEST_F(TevText, OneBadFileDoesNotStopTheOthers)
{
    const std::string good = Write("good", "text\n");
    const std::string missing = Path("missing");
    const std::string folder = m_folder.Path().string();
    for (const char* command : {"info", "cat"})
    {
        const TevResult result = RunTev({"text", command, missing, good, folder, good});
        EXPECT_EQ(result.m_exitCode, 1);
        EXPECT_THAT(result.m_error, StartsWith("tev: " + missing + ": "));
        EXPECT_THAT(result.m_error, HasSubstr("\ntev: " + folder + ": "));
        EXPECT_THAT(result.m_error, AllOf(HasSubstr("missing: Cannot find it.\n"), EndsWith(": is a folder\n")));
        EXPECT_EQ(std::count(result.m_error.begin(), result.m_error.end(), '\n'), 2);
        EXPECT_EQ(std::count(result.m_output.begin(), result.m_output.end(), '\n'), 2);
    }
}

TEST_F(TevText, WrongUsageIsTold)
{
    const std::string file = Write("file", "text\n");
    const std::vector<std::string> wrong[] = {
        {},
        {"nonsense"},
        {"text"},
        {"text", "info", "--nonsense", file},
        {"text", "info", "--format", "xml", file},
        {"text", "cat", "--from", "klingon", file},
        {"text", "cat", "--from", "3", file},
        {"text", "cat", "--from", "cp99999", file},
        {"text", "cat", "--from", "", file},
        {"text", "convert", file, Path("out")},
        {"text", "convert", file, "--to", "utf-8"},
        {"text", "convert", file, Path("out"), "--to", "klingon"},
        {"text", "convert", file, Path("out"), "--to", "1252", "--bom"},
        {"text", "convert", file, Path("out"), "--to", "utf-8", "--bom", "--no-bom"},
    };
    for (const auto& arguments : wrong)
    {
        EXPECT_THAT(RunTev(arguments), FieldsAre(2, "", AllOf(StartsWith("tev: "), HasSubstr("--help"))))
            << testing::PrintToString(arguments);
    }
    EXPECT_EQ(FileCount(), 1u);

    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>>{{"--help"},
                                               {"text", "--help"},
                                               {"text", "info", "--help"},
                                               {"text", "cat", "-h"},
                                               {"text", "convert", "--help"},
                                               {"--version"}})
    {
        EXPECT_THAT(RunTev(arguments), FieldsAre(0, HasSubstr("tev"), "")) << testing::PrintToString(arguments);
    }
}

TEST_F(TevText, ConvertAgreesWithIconvThereAndBack)
{
    struct Case
    {
        const char* m_name;
        const char* m_iconvName;
        std::string m_mark;
        std::string m_dense; // fills more than a block, and leaves one place at its start where a cut is easy to find
        std::string m_text;
    };
    const std::string all = "caf\u00E9 \u20AC\r\n\u65E5\u672C \U0001F600 ?\n";
    const Case cases[] = {
        {"utf-8", "UTF-8", "", "\U0001F600", all},
        {"utf-16", "UTF-16LE", "\xFF\xFE", "\U0001F600", all},
        {"utf-16le", "UTF-16LE", "\xFF\xFE", "", all},
        {"utf-16be", "UTF-16BE", "\xFE\xFF", "\U0001F600", all},
        {"gb18030", "GB18030", "", "\U0001F600", all},
        {"1252", "CP1252", "", "\u00E9", "caf\u00E9 \u20AC ?\r\n"},
        {"cp1251", "CP1251", "", "", "\u0442\u0430\u043B\u044C\r"},
        {"latin1", "ISO-8859-1", "", "", "caf\u00E9\n"},
        {"iso-8859-7", "ISO-8859-7", "", "", "\u03CD\u03BB\u03BF\n"},
        {"koi8-r", "KOI8-R", "", "", "\u0442\u0430\u043B\u044C\n"},
        {"shift-jis", "CP932", "", "\u65E5", "\u672C\uFF76\u30BD\n"},
        {"euc-jp", "EUC-JP", "", "", "\u672C\n"},
        {"euc-kr", "CP949", "", "", "\uAD6D\n"},
        {"gbk", "CP936", "", "", "\u6587\n"},
        {"big5", "CP950", "", "", "\u6587\n"},
        {"ascii", "ASCII", "", "", "plain\n"},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.m_name);
        std::string text = "\n";
        while (!c.m_dense.empty() && text.size() <= kBlock)
            text += c.m_dense;
        text += c.m_text;
        const TevResult there = RunTev({"text", "convert", Write("plain", text), Path("there"), "--to", c.m_name});
        EXPECT_EQ(there.m_error, "");
        ASSERT_EQ(there.m_exitCode, 0);
        EXPECT_TRUE(Read("there") == c.m_mark + Iconv(c.m_iconvName, "UTF-8", text));

        Write("bare", Read("there").substr(c.m_mark.size()));
        for (const char* source : {"there", "bare"})
        {
            if (source == "bare"s && c.m_mark.empty())
                continue; // the same
            const TevResult back =
                RunTev({"text", "convert", Path(source), Path("back"), "--from", c.m_name, "--to", "utf-8"});
            EXPECT_EQ(back.m_error, "");
            EXPECT_TRUE(Read("back") == text) << source;
        }
    }
}

TEST_F(TevText, ConvertWritesMarksAsAsked)
{
    const std::string plain = Write("plain", "a");
    const std::string marked = Write("marked", "\xEF\xBB\xBF"s + "a");
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{plain, "--to", "utf-8"}, "a"},
        {{marked, "--to", "utf-8"}, "a"},
        {{plain, "--to", "utf-8", "--bom"}, "\xEF\xBB\xBF"s + "a"},
        {{marked, "--to", "utf-8", "--bom"}, "\xEF\xBB\xBF"s + "a"},
        {{plain, "--to", "utf-16", "--no-bom"}, "a\0"s},
        {{marked, "--to", "utf-16be"}, "\xFE\xFF\0a"s},
    };
    for (const auto& [options, expected] : cases)
    {
        std::vector<std::string> arguments = {"text", "convert", "--verbose", options[0], Path("out")};
        arguments.insert(arguments.end(), options.begin() + 1, options.end());
        const TevResult result = RunTev(arguments);
        EXPECT_EQ(Read("out"), expected) << testing::PrintToString(options);
        EXPECT_THAT(result.m_error, StartsWith("tev: " + options[0] + ": UTF-8, "));
    }
}

TEST_F(TevText, ConvertCountsWhatIsLost)
{
    struct Case
    {
        std::string m_bytes;
        const char* m_from;
        const char* m_to;
        std::string m_result;
        const char* m_told;
    };
    const Case cases[] = {
        {"? \u20AC \u65E5 ?", "utf-8", "latin1", "? ? ? ?", "2 missing in code page 28591"},
        {"a\xFF \xEF\xBF\xBD", "utf-8", "utf-8", "a\uFFFD \uFFFD", "1 without meaning in UTF-8"},
        {"a\xFF\u20AC", "utf-8", "latin1", "a??",
         "1 without meaning in UTF-8, 1 missing in code page 28591; the first without meaning at byte 1\n"},
        {"\xEF\xBB\xBF" + std::string(kBlock, 'a') + "\xFFz\xFF", "utf-8", "utf-8",
         std::string(kBlock, 'a') + "\uFFFDz\uFFFD",
         "2 without meaning in UTF-8; the first without meaning at byte 1048579\n"},
        {Repeat("\u65E5", kBlock / 2), "utf-8", "1252", std::string(kBlock / 2, '?'),
         "524288 missing in code page 1252"},
        {"a\x81", "1252", "utf-8", "a\uFFFD", "1 without meaning in code page 1252"},
        {"\xFD\xFF\0\xFD\xFF\0x"s, "utf-16", "utf-8", "\uFFFD\uFD00\u00FF\uFFFD", "1 without meaning in UTF-16"},
        {"\x00\xD8x\0"s, "utf-16", "utf-8", "?x", "1 missing in UTF-8"},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(c.m_told);
        const std::string in = Write("in", c.m_bytes);
        EXPECT_THAT(RunTev({"text", "convert", in, Path("out"), "--from", c.m_from, "--to", c.m_to}),
                    FieldsAre(0, _, AllOf(StartsWith("tev: " + in + ": "), HasSubstr(c.m_told))));
        EXPECT_EQ(Read("out"), c.m_result);

        Write("out", "old");
        EXPECT_THAT(RunTev({"text", "convert", in, Path("out"), "--from", c.m_from, "--to", c.m_to, "--strict"}),
                    FieldsAre(1, _, HasSubstr(c.m_told)));
        EXPECT_EQ(Read("out"), "old");
    }
    EXPECT_EQ(FileCount(), 2u);
}

TEST_F(TevText, ConvertReplacesOnlyWhenItIsDone)
{
    // Onto itself, through a link, with the permissions as they were.
    const std::string file = Write("file", "caf\u00E9\n");
    std::filesystem::create_symlink("file", m_folder.Path("link"));
    ASSERT_EQ(chmod(file.c_str(), 0640), 0);
    EXPECT_EQ(RunTev({"text", "convert", file, Path("link"), "--to", "1252"}).m_exitCode, 0);
    EXPECT_EQ(Read("file"), "caf\xE9\n");
    EXPECT_TRUE(std::filesystem::is_symlink(m_folder.Path("link")));
    struct stat status = {};
    ASSERT_EQ(stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640u);

    // A disk that is full in the middle.
    const std::string large = Write("large", std::string(3 * kBlock, 'x'));
    const auto limitFileSize = [] {
        const rlimit limit = {kBlock, kBlock};
        setrlimit(RLIMIT_FSIZE, &limit);
        std::signal(SIGXFSZ, SIG_IGN);
    };
    EXPECT_THAT(RunTev({"text", "convert", large, file, "--to", "utf-8"}, {}, limitFileSize).m_error,
                StartsWith("tev: " + file + ": "));

    // Targets that cannot be.
    EXPECT_EQ(mkfifo(Path("pipe").c_str(), 0600), 0);
    for (const std::string& target : {m_folder.Path().string(), Path("pipe"), Path("missing/out"), Path("file/out")})
    {
        EXPECT_THAT(RunTev({"text", "convert", large, target, "--to", "utf-8"}),
                    FieldsAre(1, _, StartsWith("tev: " + target + ": ")));
    }
    EXPECT_EQ(RunTev({"text", "convert", Path("missing"), file, "--to", "utf-8"}).m_exitCode, 1);
    EXPECT_EQ(Read("file"), "caf\xE9\n");
    EXPECT_EQ(FileCount(), 4u);
}

TEST_F(TevText, PipesWork)
{
    EXPECT_EQ(RunTev({"text", "info"}, "a\rb").m_output, "-\tASCII\tno\tCR\t2\t3\n");
    EXPECT_EQ(RunTev({"text", "cat"}, "a\rb").m_output, "a\nb\n");
    EXPECT_EQ(RunTev({"text", "convert", "-", "-", "--to", "utf-16be"}, "a").m_output, "\xFE\xFF\0a"s);

    // A reader that has enough.
    const std::string large = Write("large", std::string(3 * kBlock, 'x') + "\n");
    FILE* error = std::tmpfile();
    Pipe pipe;
    TevProcess process({"text", "cat", large, large}, -1, pipe.WriteEnd(), fileno(error),
                       [] { std::signal(SIGPIPE, SIG_IGN); });
    pipe.CloseWrite();
    char byte = '\0';
    EXPECT_EQ(read(pipe.ReadEnd(), &byte, 1), 1);
    pipe.CloseRead();
    EXPECT_EQ(process.Wait(), 128 + SIGPIPE);
    EXPECT_EQ(lseek(fileno(error), 0, SEEK_END), 0);
    std::fclose(error);
}

TEST_F(TevText, FullOutputIsToldOnce)
{
    const std::string file = Write("file", std::string(kBlock, 'x') + "\n");
    const TevResult result =
        RunTev({"text", "cat", file, file, file}, {}, [] { dup2(open("/dev/full", O_WRONLY), STDOUT_FILENO); });
    EXPECT_EQ(result.m_exitCode, 1);
    EXPECT_THAT(result.m_error, AllOf(StartsWith("tev: standard output: "), EndsWith("\n")));
    EXPECT_EQ(std::count(result.m_error.begin(), result.m_error.end(), '\n'), 1);
}

TEST_F(TevText, InterruptLeavesNoTemporaryFile)
{
    const std::string out = Write("out", "old");
    Pipe input;
    TevProcess process({"text", "convert", "-", out, "--to", "utf-8"}, input.ReadEnd(), -1, -1);
    ASSERT_TRUE(Eventually([this] { return FileCount() == 2; }));
    process.Signal(SIGINT);
    EXPECT_EQ(process.Wait(), 128 + SIGINT);
    EXPECT_EQ(FileCount(), 1u);
    EXPECT_EQ(Read("out"), "old");
}

TEST_F(TevText, ATerminalSeesProgressWhileItTakesLong)
{
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(terminal, 0);
    ASSERT_EQ(grantpt(terminal), 0);
    ASSERT_EQ(unlockpt(terminal), 0);
    const int slave = open(ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(slave, 0);
    Pipe input;
    TevProcess process({"text", "info"}, input.ReadEnd(), -1, slave);
    close(slave);

    // Feeds it as long as it says nothing.
    const std::string lines(4096, '\n');
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    pollfd speaks = {terminal, POLLIN, 0};
    while (poll(&speaks, 1, 0) == 0 && std::chrono::steady_clock::now() < deadline)
        ASSERT_EQ(write(input.WriteEnd(), lines.data(), lines.size()), static_cast<ssize_t>(lines.size()));
    input.CloseWrite();
    EXPECT_EQ(process.Wait(), 0);

    std::string seen;
    char buffer[4096];
    for (ssize_t count = 0; (count = read(terminal, buffer, sizeof buffer)) > 0;)
        seen.append(buffer, static_cast<std::size_t>(count));
    EXPECT_THAT(seen, AllOf(HasSubstr("MB/s"), EndsWith("\r\033[K")));
    close(terminal);
}
} // namespace
