#include "tests/support/RawZip.h"
#include "tests/support/TempFolder.h"
#include "tests/tools/TevRunner.h"

namespace
{
using namespace tev::test;
using testing::AllOf;

class TevUnpack : public testing::Test
{
protected:
    std::string Path(const std::string& name) const { return m_folder.Path(name).string(); }
    std::string Write(const std::string& name, const std::string& bytes) const
    {
        m_folder.WriteFile(name, bytes);
        return Path(name);
    }
    void Shell(const std::string& command) const
    {
        ASSERT_EQ(std::system(("cd " + Path("") + " && (" + command + ") >/dev/null 2>&1").c_str()), 0);
    }
    /// In the folder "current".
    TevResult Run(std::vector<std::string> arguments) const
    {
        std::filesystem::create_directories(m_folder.Path("current"));
        arguments.insert(arguments.begin(), "unpack");
        const std::string current = Path("current");
        return RunTev(arguments, "", [&] { static_cast<void>(!chdir(current.c_str())); });
    }

    TempFolder m_folder;
};

TEST_F(TevUnpack, UnpacksEachKindToItsPlace)
{
    const std::string zip = Write("a.zip", RawZip({{"m/a.obj", "model"}, {"empty/", ""}, {"t.png", "texture"}}));
    Write("model.obj", "model");
    Shell("gzip -k model.obj && zstd model.obj && cp model.obj.gz scene.tgz");
    TevResult result = Run({zip});
    EXPECT_EQ(result.m_output, "m/a.obj\nt.png\n");
    EXPECT_EQ(result.m_error + std::to_string(result.m_exitCode), "0");
    EXPECT_EQ(m_folder.ReadFile("current/m/a.obj"), "model");

    result = Run({zip, Path("new/folder"), "--keep"});
    EXPECT_EQ(result.m_output, Path("new/folder/m/a.obj") + "\n" + Path("new/folder/t.png") + "\n");
    EXPECT_TRUE(m_folder.Exists("new/folder/empty"));

    EXPECT_EQ(Run({Path("model.obj.gz")}).m_output, "model.obj\n");
    EXPECT_EQ(Run({Path("scene.tgz")}).m_output, "scene.tar\n");
    EXPECT_EQ(Run({Path("model.obj.zst"), Path("new")}).m_output, Path("new/model.obj") + "\n");
    EXPECT_EQ(Run({Path("model.obj.zst"), Path("new/other")}).m_output, Path("new/other") + "\n");
    for (const char* name : {"current/model.obj", "current/scene.tar", "new/model.obj", "new/other"})
        EXPECT_EQ(m_folder.ReadFile(name), "model") << name;
}

TEST_F(TevUnpack, ListsWithoutWriting)
{
    const std::string zip =
        Write("a.zip", RawZip({{"m/a.obj", std::string(1000, 'x'), true}, {"../b", ""}, {"c/", ""}}));
    Shell("gzip a.zip && gunzip -k a.zip.gz");
    const TevResult result = Run({zip, "--list"});
    EXPECT_EQ(result.m_error, "");
    EXPECT_THAT(result.m_output, testing::MatchesRegex("1000\t[0-9]+\t2025-01-01 00:00:00\tm/a.obj\n"
                                                       "0\t0\t2025-01-01 00:00:00\t../b\n"
                                                       "0\t0\t2025-01-01 00:00:00\tc/\n"));
    EXPECT_THAT(Run({Path("a.zip.gz"), "--list"}).m_output, testing::MatchesRegex("-\t[0-9]+\t-\ta.zip\n"));
    EXPECT_TRUE(std::filesystem::is_empty(m_folder.Path("current")));
}

TEST_F(TevUnpack, SaysWhatIsWrong)
{
    const std::string zip = Write("a.zip", RawZip({{"../a", "x"}, {"good", "x"}, {"good", "y"}}));
    TevResult result = Run({zip});
    EXPECT_EQ(result.m_exitCode, 1);
    EXPECT_EQ(result.m_output, "good\n");
    EXPECT_EQ(result.m_error, "tev: " + zip + ": skipped ../a: The entry's name is not safe.\ntev: " + zip +
                                  ": skipped good: An earlier entry has that name.\n");

    Shell(
        "printf model | gzip >g && head -c -8 g >checksum.gz && printf XXXX >>checksum.gz && tail -c 4 g >>checksum.gz"
        " && head -c -4 g >length.gz && printf XXXX >>length.gz");
    struct Case
    {
        std::vector<std::string> m_arguments;
        const char* m_reason;
        std::string m_blamed = m_arguments[0];
    };
    const Case failures[] = {
        {{Path("none")}, "no such file"},
        {{Path("none"), "--list"}, "no such file"},
        {{Write("text", "no archive")}, "not of the expected kind"},
        {{Path("text"), "--list"}, "not a ZIP archive"},
        {{Write("empty.zip", RawZip({}))}, "No file could be unpacked"},
        {{Write("cut.zst", "\x28\xB5\x2F\xFD")}, "is cut off"},
        {{zip, Path("text")}, "cannot be written", Path("text")},
        {{Write("a.gz", "\x1F\x8B"), Path("a.gz")}, "cannot be written"},
        {{Path("a.gz"), Path("none/b")}, "cannot be written", Path("none/b")},
        {{Path("a.gz")}, "is cut off"},
        {{Write("method.gz", "\x1F\x8B\x09rest")}, "method of compression is not known"},
        {{Path("checksum.gz")}, "checksum is wrong"},
        {{Path("length.gz")}, "length is wrong"},
    };
    for (const auto& [arguments, reason, blamed] : failures)
    {
        result = Run(arguments);
        EXPECT_EQ(result.m_exitCode, 1) << arguments[0];
        EXPECT_THAT(result.m_error, AllOf(HasSubstr("tev: " + blamed + ": "), HasSubstr(reason)));
    }
    EXPECT_EQ(Run({}).m_exitCode, 2);
    EXPECT_THAT(Run({"--help"}).m_output, HasSubstr("--password"));
}

TEST_F(TevUnpack, PasswordOpensEncryptedEntries)
{
    Write("secret.txt", "secret");
    Shell("zip -P right a.zip secret.txt");
    EXPECT_THAT(Run({Path("a.zip")}).m_error, HasSubstr("password is missing or wrong"));
    EXPECT_EQ(Run({Path("a.zip"), "--password", "right"}).m_output, "secret.txt\n");
    EXPECT_EQ(m_folder.ReadFile("current/secret.txt"), "secret");
}

TEST_F(TevUnpack, AnInterruptLeavesOnlyWhatIsToBeKept)
{
    // Far more than is unpacked before the signal comes.
    const std::string zeros(1'000'000, '\0');
    RawEntry entry{"", RawDeflate(zeros)};
    entry.method = 8;
    entry.size = zeros.size();
    entry.checksum = crc32_z(0, reinterpret_cast<const Bytef*>(zeros.data()), zeros.size());
    std::vector<RawEntry> entries;
    for (int i = 0; i < 20000; ++i)
    {
        entry.name = std::to_string(i);
        entries.push_back(entry);
    }
    const std::string zip = Write("a.zip", RawZip(entries));
    for (const bool keep : {false, true})
    {
        const std::string out = Path("out");
        std::vector<std::string> arguments = {"unpack", zip, out};
        if (keep)
            arguments.emplace_back("--keep");
        TevProcess process(arguments, -1, -1, -1);
        EXPECT_TRUE(Eventually([this] { return m_folder.Exists("out/2"); }));
        process.Signal(SIGINT);
        EXPECT_EQ(process.Wait(), 128 + SIGINT);
        EXPECT_EQ(std::filesystem::is_empty(out), !keep);
        for (const auto& file : std::filesystem::directory_iterator(out))
            EXPECT_EQ(file.file_size(), zeros.size()) << "only whole files stay";
        std::filesystem::remove_all(out);
    }
}
} // namespace
