#include "zip/CMiniZip.h"

#include "platform/PathNames.h"
#include "tests/support/PrintText.h"
#include "tests/support/RawZip.h"
#include "tests/support/TempFolder.h"
#include "threads/ThreadRelations.h"
#include "threads/WorkerCount.h"
#include "zip/engine/PlainZipReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <functional>
#include <map>
#include <set>
#include <stdexcept>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{
namespace fs = std::filesystem;
using namespace std::string_literals;
using namespace tev::test;
using tev::platform::PlainZipEntry;
using tev::platform::PlainZipReader;
using tev::platform::ZipEntryKind;
using tev::platform::ZipReadResult;
using Text = CXTString<wchar_t>;

std::string Noise(std::size_t size, unsigned seed = 1)
{
    std::string bytes(size, '\0');
    for (char& byte : bytes)
    {
        seed = seed * 1664525u + 1013904223u;
        byte = static_cast<char>(seed >> 24);
    }
    return bytes;
}

/// Another program's work.
void Shell(const std::string& command)
{
    if (std::system(("(" + command + ") >/dev/null 2>&1").c_str()) != 0)
        throw std::runtime_error("cannot do: " + command);
}

/// Ends an extraction after so many reports.
class Watched : public CMiniZip
{
public:
    std::function<bool(unsigned __int64, unsigned __int64)> m_watch;

protected:
    bool OnProgress(unsigned __int64 processed, unsigned __int64 total) override
    {
        return !m_watch || m_watch(processed, total);
    }
};

class MiniZip : public testing::Test
{
protected:
    ~MiniZip() override
    {
        OMPSetMaxThreadCount(1000);
        unsetenv("TMPDIR");
    }

    Text Wide(const std::string& name) const { return m_folder.WidePath(name).c_str(); }
    std::string Path(const std::string& name) const { return m_folder.Path(name).string(); }

    Text WriteZip(const std::vector<RawEntry>& entries) { return m_folder.WriteFile("a.zip", RawZip(entries)).c_str(); }

    /// The paths in the list, without that of the folder.
    std::vector<std::string> Listed(const CMiniZip& zip) const
    {
        std::vector<std::string> names;
        for (const Text& file : zip.GetExtractedFiles())
        {
            std::string path; // a conversion of the C++ library would go through the C locale
            EXPECT_TRUE(tev::platform::WidePathToSystem(file, path));
            names.push_back(fs::path(path).lexically_relative(m_folder.Path()).string());
        }
        return names;
    }

    /// All files beneath the folder, with their contents.
    std::map<std::string, std::string> Files(const std::string& folder) const
    {
        std::map<std::string, std::string> files;
        for (const auto& entry : fs::recursive_directory_iterator(m_folder.Path(folder)))
        {
            if (!entry.is_directory())
            {
                const std::string name = entry.path().lexically_relative(m_folder.Path(folder)).string();
                files[name] = m_folder.ReadFile(folder + "/" + name);
            }
        }
        return files;
    }

    std::ptrdiff_t TemporaryCount() const { return std::distance(fs::directory_iterator(m_folder.Path("tmp")), {}); }
    void UseOwnTemporaryFolder()
    {
        fs::create_directory(m_folder.Path("tmp"));
        setenv("TMPDIR", Path("tmp").c_str(), 1);
    }

    TempFolder m_folder;
};

using Contents = std::map<std::string, std::string>;
using testing::ElementsAre;
using testing::IsEmpty;

// Archives

TEST_F(MiniZip, ThreadsExtractInTheOrderOfTheArchive)
{
    std::vector<RawEntry> entries;
    std::vector<std::string> names;
    Contents contents;
    for (int i = 0; i < 300; ++i)
    {
        const std::string name = "folder " + std::to_string(i % 7) + "/sub/" + std::to_string(i) + ".bin";
        const std::string bytes = Noise(static_cast<std::size_t>(i) * i % 5000 + (i == 5 ? 2'000'000 : 0));
        entries.push_back({name, bytes, i % 2 == 0});
        names.push_back("out/" + name);
        contents[name] = bytes;
    }
    const Text archive = WriteZip(entries);
    for (const unsigned workers : {1u, 2u, 8u})
    {
        OMPSetMaxThreadCount(workers);
        CMiniZip zip;
        EXPECT_TRUE(zip.ExtractZip(archive, Wide("out"), false));
        EXPECT_EQ(Listed(zip), names);
        EXPECT_TRUE(Files("out") == contents);
        struct stat status;
        EXPECT_EQ(stat(Path("out/folder 0/sub/0.bin").c_str(), &status), 0);
        tm written{}; // the archive has local times
        localtime_r(&status.st_mtime, &written);
        EXPECT_EQ(written.tm_year, 125);
        EXPECT_EQ(written.tm_yday, 0);
        EXPECT_TRUE(zip.Clean());
        EXPECT_TRUE(zip.GetExtractedFiles().IsEmpty());
        EXPECT_EQ(Files("out"), Contents());
        EXPECT_TRUE(m_folder.Exists("out/folder 0/sub")) << "folders may be in use by others";
    }
}

TEST_F(MiniZip, ThreadWritesLargeFilesBehind)
{
    const std::string large = Noise(3'000'000);
    const Text archive = WriteZip({{"large", large, true}});
    m_folder.WriteFile("noise", large);
    Shell("gzip -k " + Path("noise") + " && zstd " + Path("noise"));
    OMPSetMaxThreadCount(2);
    Watched zip;
    for (const unsigned __int64 stopAt : {~0ull, 1'000'000ull})
    {
        zip.m_watch = [&](unsigned __int64 processed, unsigned __int64) { return processed < stopAt; };
        const bool isComplete = stopAt > large.size();
        EXPECT_EQ(zip.ExtractZip(archive, Wide("out"), false), isComplete);
        EXPECT_EQ(Files("out")["large"] == large, isComplete);
        EXPECT_EQ(zip.ExtractZFile(Wide("noise.gz"), Wide("out/gz"), false), isComplete);
        EXPECT_EQ(Files("out")["gz"] == large, isComplete);
        EXPECT_EQ(zip.ExtractZFile(Wide("noise.zst"), Wide("out/zst"), false), isComplete);
        EXPECT_EQ(Files("out")["zst"] == large, isComplete);
        zip.Clean();
        EXPECT_EQ(Files("out"), Contents());
    }
}

TEST_F(MiniZip, WritesNothingOutsideAndSkipsWhatIsUnsafe)
{
    m_folder.WriteFile("out/here", "old");
    m_folder.WriteFile("precious", "precious");
    fs::create_directory_symlink(m_folder.Path(), m_folder.Path("out/link"));
    fs::create_symlink(m_folder.Path("precious"), m_folder.Path("out/leaf"));
    fs::create_directory(m_folder.Path("out/taken"));
    const std::string longName(256, 'n');
    const std::vector<std::pair<RawEntry, CXSkipReason>> unsafe = {
        {{"../precious", "evil"}, CXSkipReason::kUnsafeName},
        {{"a/../../precious", "evil"}, CXSkipReason::kUnsafeName},
        {{Path("precious"), "evil"}, CXSkipReason::kUnsafeName},
        {{"C:/precious", "evil"}, CXSkipReason::kUnsafeName},
        {{"..\\precious", "evil"}, CXSkipReason::kUnsafeName},
        {{"precious\0.txt"s, "evil"}, CXSkipReason::kUnsafeName},
        {{"nul.txt", "evil"}, CXSkipReason::kUnsafeName},
        {{longName, "evil"}, CXSkipReason::kUnsafeName},
        {{"\xFF", "evil"}, CXSkipReason::kUnsafeName},
        {{"link/precious", "evil"}, CXSkipReason::kNotWritable},
        {{"leaf", "evil"}, CXSkipReason::kNotWritable},
        {{"taken", "evil"}, CXSkipReason::kNotWritable},
        {{"../made/", ""}, CXSkipReason::kUnsafeName},
        {{"link/made/", ""}, CXSkipReason::kNotWritable},
        {{"new link", Path("")}, CXSkipReason::kSpecialFile},
        {{"HERE", "evil"}, CXSkipReason::kNameClash},
        {{"here", "evil"}, CXSkipReason::kNameClash},
        {{"here/x", "evil"}, CXSkipReason::kNameClash},
    };
    std::vector<RawEntry> entries = {{"here", "new"}};
    for (auto [entry, reason] : unsafe)
    {
        entry.attributes = reason == CXSkipReason::kSpecialFile ? 0xA1FF0000 : 0;
        entries.push_back(entry);
    }
    entries.push_back({"new link/precious", "mine"}); // the link was never made
    entries.push_back({"caf\x82", "mine", false, 0});
    CMiniZip zip;
    EXPECT_TRUE(zip.ExtractZip(WriteZip(entries), Wide("out"), false));
    EXPECT_THAT(Listed(zip), ElementsAre("out/here", "out/new link/precious", "out/caf\xC3\xA9"));
    EXPECT_EQ(m_folder.ReadFile("out/here"), "new");
    EXPECT_EQ(m_folder.ReadFile("precious"), "precious");
    std::set<std::string> all;
    for (const auto& entry : fs::directory_iterator(m_folder.Path()))
        all.insert(entry.path().filename().string());
    EXPECT_EQ(all, (std::set<std::string>{"a.zip", "out", "precious"}));

    ASSERT_EQ(zip.GetSkippedEntries().size(), unsafe.size());
    for (std::size_t i = 0; i < unsafe.size(); ++i)
        EXPECT_EQ(zip.GetSkippedEntries()[i].m_reason, unsafe[i].second) << unsafe[i].first.name;
}

TEST_F(MiniZip, DamagedEntriesLeaveNothingAndTheRestComesOut)
{
    const std::string text(100000, 'x');
    RawEntry wrongChecksum{"checksum", text, true};
    wrongChecksum.checksum = 1;
    RawEntry tooSmall{"small", text, true};
    tooSmall.size = 99999;
    RawEntry tooLarge{"large", text, true};
    tooLarge.size = 100001;
    RawEntry noDeflate{"invalid", Noise(5000)};
    noDeflate.method = 8;
    RawEntry unknownMethod{"method", text};
    unknownMethod.method = 77;
    RawEntry encrypted{"encrypted", text};
    encrypted.flags = 1;
    m_folder.WriteFile("out/checksum", "as it was");
    CMiniZip zip;
    EXPECT_TRUE(zip.ExtractZip(WriteZip({{"first", text, true},
                                         wrongChecksum,
                                         tooSmall,
                                         tooLarge,
                                         noDeflate,
                                         unknownMethod,
                                         encrypted,
                                         {"empty", ""},
                                         {"last", text}}),
                               Wide("out"), false));
    EXPECT_TRUE((Files("out") == Contents{{"first", text}, {"empty", ""}, {"last", text}, {"checksum", "as it was"}}));
    std::vector<CXSkipReason> reasons;
    for (const CXSkippedEntry& entry : zip.GetSkippedEntries())
        reasons.push_back(entry.m_reason);
    using R = CXSkipReason;
    EXPECT_THAT(reasons,
                ElementsAre(R::kDamaged, R::kDamaged, R::kDamaged, R::kDamaged, R::kUnsupported, R::kWrongPassword));
}

TEST_F(MiniZip, EntriesThatShareDataDoNotMultiplyIt)
{
    std::vector<RawEntry> entries = {{"0", Noise(5000)}};
    for (int i = 1; i < 50; ++i)
    {
        entries.push_back({std::to_string(i), Noise(5000)});
        entries.back().shares = 0;
    }
    CMiniZip zip;
    EXPECT_TRUE(zip.ExtractZip(WriteZip(entries), Wide("out"), false));
    EXPECT_THAT(Listed(zip), ElementsAre("out/0"));
    // An entry that makes miniz refuse the whole archive, so that the engine reads it.
    entries.push_back({"odd", "12345"});
    entries.back().size = 4;
    EXPECT_TRUE(zip.ExtractZip(WriteZip(entries), Wide("out"), false));
    EXPECT_THAT(Listed(zip), ElementsAre("out/0"));
}

TEST_F(MiniZip, EntryThatReachesIntoAnotherDoesNotHideIt)
{
    const std::string text(100000, 'x');
    RawEntry greedy{"greedy", text, true};
    greedy.packedSize = RawDeflate(text).size() + 100;
    RawEntry shared{"shared", text, true};
    shared.shares = 0;
    const Text archive = WriteZip({{"first", text, true}, greedy, {"behind", text}, shared});
    if (PlainZipReader::Open(archive, "", PlainZipReader::By::Miniz) == nullptr)
        GTEST_SKIP() << "only miniz tells where entries stand";
    CMiniZip zip;
    EXPECT_TRUE(zip.ExtractZip(archive, Wide("out"), false));
    EXPECT_THAT(Listed(zip), ElementsAre("out/first", "out/behind"));
}

TEST_F(MiniZip, LimitsRefuseWhatIsTooLarge)
{
    const std::string zeros(1'000'000, '\0');
    const Text archive = WriteZip({{"a", Noise(1000)}, {"bomb", zeros, true}, {"b", Noise(1000)}, {"c", Noise(1000)}});
    CMiniZip zip;
    EXPECT_EQ(zip.GetLimits().m_totalBytes, 1ull << 40);
    zip.SetLimits({1ull << 40, 100});
    EXPECT_TRUE(zip.ExtractZip(archive, Wide("out"), false));
    EXPECT_THAT(Listed(zip), ElementsAre("out/a", "out/b", "out/c"));
    zip.SetLimits({2500, 1000000});
    EXPECT_TRUE(zip.ExtractZip(archive, Wide("out"), false));
    EXPECT_THAT(Listed(zip), ElementsAre("out/a", "out/b"));

    m_folder.WriteFile("zeros", zeros);
    Shell("gzip -k " + Path("zeros") + " && zstd " + Path("zeros"));
    for (const CXExtractionLimits& limits : {CXExtractionLimits{999999, 1000000}, CXExtractionLimits{1000000, 100}})
    {
        zip.SetLimits(limits);
        EXPECT_FALSE(zip.ExtractZFile(Wide("zeros.gz"), Wide("out/gz"), false));
        EXPECT_FALSE(zip.ExtractZFile(Wide("zeros.zst"), Wide("out/zst"), false));
    }
    EXPECT_EQ(Files("out"), Contents());
    zip.SetLimits({1000000, 100000});
    EXPECT_TRUE(zip.ExtractZFile(Wide("zeros.gz"), Wide("out/gz"), false));
    EXPECT_TRUE(zip.ExtractZFile(Wide("zeros.zst"), Wide("out/zst"), false));
}

TEST_F(MiniZip, SecondDirectoryDoesNotDeceiveTheLimits)
{
    // The comment of the one end holds another directory, with an end whose own comment is cut.
    std::string archive = RawZip({{"a", std::string(1'000'000, '\0'), true}});
    RawEntry harmless{"a", "0123456789"};
    harmless.method = 77;
    const std::string other = RawZip({harmless});
    const std::string directory = other.substr(other.find("PK\1\2"));
    archive.replace(archive.size() - 2, 2, LittleEndianText(directory.size(), 2));
    const std::string start = LittleEndianText(archive.size(), 4);
    archive += directory.substr(0, directory.size() - 6) + start + LittleEndianText(1, 2);
    CMiniZip zip;
    zip.SetLimits({1000, 100'000});
    EXPECT_FALSE(zip.ExtractZip(m_folder.WriteFile("a.zip", archive).c_str(), Wide("out"), true));
    EXPECT_TRUE(Files("out").empty());
    EXPECT_EQ(zip.GetSkippedEntries().size(), 1u);
    EXPECT_FALSE((CXExtractionLimits{~0ull, 100}.Allows(~0ull, 5))) << "no overflow";
    EXPECT_TRUE((CXExtractionLimits{~0ull, 100}.Allows(201, 3)));
    EXPECT_FALSE((CXExtractionLimits{~0ull, 100}.Allows(301, 3)));
}

TEST_F(MiniZip, TemporaryFolderIsRemovedWithItsContents)
{
    UseOwnTemporaryFolder();
    const Text archive = WriteZip({{"folder/model.obj", "v 0 0 0"}, {"empty/", ""}});
    {
        CMiniZip zip;
        ASSERT_TRUE(zip.ExtractZip(archive, {}, false));
        const fs::path file(std::wstring(zip.GetExtractedFiles()[0].GetConstBuffer()));
        EXPECT_THAT(file.parent_path().parent_path().filename().string(), testing::StartsWith("MiniZip"));
        EXPECT_EQ(file.parent_path().parent_path().parent_path(), m_folder.Path("tmp"));
        m_folder.WriteFile("tmp/" + file.parent_path().parent_path().filename().string() + "/left/by others", "");
        fs::create_directory_symlink(m_folder.Path(), file.parent_path() / "link");
        EXPECT_EQ(TemporaryCount(), 1);
    }
    EXPECT_EQ(TemporaryCount(), 0) << "the destructor cleans";
    EXPECT_TRUE(m_folder.Exists("a.zip")) << "and follows no links";

    CMiniZip zip;
    EXPECT_FALSE(zip.ExtractZip(WriteZip({{"folder/", ""}, {"../a", "x"}}), {}, false)) << "no file";
    m_folder.WriteFile("b.zip", "no archive");
    EXPECT_FALSE(zip.ExtractZip(Wide("b.zip"), {}, false));
    EXPECT_FALSE(zip.ExtractZip(Wide("none.zip"), {}, false));
    EXPECT_EQ(TemporaryCount(), 0);

    ASSERT_TRUE(zip.ExtractZip(WriteZip({{"a", "x"}}), {}, false));
    const fs::path folder = fs::path(std::wstring(zip.GetExtractedFiles()[0].GetConstBuffer())).parent_path();
    fs::remove_all(folder);
    m_folder.WriteFile("elsewhere/precious", "");
    fs::create_directory_symlink(m_folder.Path("elsewhere"), folder);
    EXPECT_TRUE(zip.Clean()) << "already removed";
    EXPECT_TRUE(zip.GetExtractedFiles().IsEmpty());
    EXPECT_TRUE(m_folder.Exists("elsewhere/precious"));
}

TEST_F(MiniZip, KeepingHasItsHistory)
{
    const Text archive = WriteZip({{"a", "x"}, {"b", "x"}});
    {
        CMiniZip zip;
        ASSERT_TRUE(zip.ExtractZip(archive, Wide("kept"), true));
        EXPECT_TRUE(zip.Clean());
        EXPECT_EQ(zip.GetExtractedFiles().GetSize(), 2) << "the list is kept, too";
        ASSERT_TRUE(zip.ExtractZip(archive, Wide("gone"), false));
        EXPECT_EQ(zip.GetExtractedFiles().GetSize(), 2);
        EXPECT_FALSE(zip.ExtractZip(Wide("none"), Wide("gone"), true));
        EXPECT_TRUE(zip.GetExtractedFiles().IsEmpty());
        EXPECT_EQ(Files("gone"), Contents()) << "by the flag of the extraction that wrote it";
        ASSERT_TRUE(zip.ExtractZip(archive, Wide("late"), false));
        zip.KeepFiles();
    }
    EXPECT_EQ(Files("kept").size(), 2u);
    EXPECT_EQ(Files("late").size(), 2u);

    const fs::path before = fs::current_path();
    fs::create_directory(m_folder.Path("current"));
    fs::current_path(m_folder.Path("current"));
    CMiniZip zip;
    EXPECT_TRUE(zip.ExtractZip(archive, {}, true));
    EXPECT_EQ(zip.GetExtractedFiles()[0], L"a");
    EXPECT_EQ(Files("current").size(), 2u);
    EXPECT_TRUE(zip.ExtractZip(archive, L"relative/to", false));
    EXPECT_EQ(zip.GetExtractedFiles()[0], L"relative/to/a");
    fs::current_path(before);
    EXPECT_TRUE(zip.Clean());
    EXPECT_EQ(Files("current/relative"), Contents()) << "also when the current folder is another one by then";
}

TEST_F(MiniZip, PathsMayComeFromTheList)
{
    Shell("cd " + Path("") + " && echo inner >text && zip -q inner.zip text && zip -q outer.zip inner.zip");
    CMiniZip zip;
    ASSERT_TRUE(zip.ExtractZip(Wide("outer.zip"), Wide("out"), true));
    EXPECT_TRUE(zip.ExtractZip(zip.GetExtractedFiles()[0], Wide("out"), true));
    EXPECT_THAT(Listed(zip), ElementsAre("out/text"));
}

TEST_F(MiniZip, CleanDeletesOnlyWhatWasWritten)
{
    const auto extract = [&](CMiniZip& zip) {
        ASSERT_TRUE(zip.ExtractZip(WriteZip({{"in/a", "x"}, {"b", "x"}, {"c", "x"}, {"d", "x"}}), Wide("out"), false));
    };
    CMiniZip zip;
    extract(zip);
    fs::rename(m_folder.Path("out/in"), m_folder.Path("moved"));
    m_folder.WriteFile("precious/a", "precious");
    fs::create_directory_symlink(m_folder.Path("precious"), m_folder.Path("out/in"));
    fs::remove(m_folder.Path("out/b"));
    m_folder.WriteFile("new c", "another");
    fs::rename(m_folder.Path("new c"), m_folder.Path("out/c"));
    EXPECT_TRUE(zip.Clean());
    EXPECT_EQ(m_folder.ReadFile("precious/a"), "precious");
    EXPECT_EQ(m_folder.ReadFile("out/c"), "another");
    EXPECT_FALSE(m_folder.Exists("out/d"));

    fs::remove(m_folder.Path("out/in"));
    extract(zip);
    fs::rename(m_folder.Path("out"), m_folder.Path("renamed"));
    extract(zip); // cleans first, where nothing of it stands any more
    EXPECT_EQ(Files("renamed").size(), 4u);
    EXPECT_EQ(Files("out").size(), 4u);
}

TEST_F(MiniZip, DestinationsThatAreNone)
{
    const Text archive = WriteZip({{"a.zip", "x"}, {"b", "x"}});
    CMiniZip zip;
    EXPECT_FALSE(zip.ExtractZip(archive, archive, true)) << "a file is no folder";
    EXPECT_TRUE(zip.ExtractZip(archive, Wide("."), true));
    EXPECT_EQ(Files(".")["a.zip"].size(), fs::file_size(m_folder.Path("a.zip"))) << "the archive is not replaced";
    ASSERT_EQ(zip.GetSkippedEntries().size(), 1u);
    EXPECT_EQ(zip.GetSkippedEntries()[0].m_name, L"a.zip");

    m_folder.WriteFile("f.gz", "\x1F\x8B");
    mkfifo(Path("pipe").c_str(), 0600);
    for (const char* name : {"f.gz", "none/f", "", "pipe"})
        EXPECT_FALSE(zip.ExtractGZip(Wide("f.gz"), Wide(name), true)) << name;
    EXPECT_FALSE(zip.ExtractGZip(Wide("f.gz"), L"/dev/null", false));
    EXPECT_FALSE(zip.ExtractGZip(Wide("f.gz"), {}, false));
    EXPECT_FALSE(zip.ExtractZip(Wide("pipe"), Wide("out"), false)) << "does not wait either";
    EXPECT_FALSE(CMiniZip::IsZFile(Wide("pipe")));
    EXPECT_EQ(m_folder.ReadFile("f.gz"), "\x1F\x8B");
}

TEST_F(MiniZip, CancellingLeavesWhatWasComplete)
{
    UseOwnTemporaryFolder();
    std::vector<RawEntry> entries;
    for (int i = 0; i < 50; ++i)
        entries.push_back({std::to_string(i), Noise(20000)});
    const Text archive = WriteZip(entries);
    Watched zip;
    unsigned __int64 last = 0;
    zip.m_watch = [&](unsigned __int64 processed, unsigned __int64 total) {
        EXPECT_GE(processed, last);
        EXPECT_LE(processed, total);
        last = processed;
        return processed < 200000;
    };
    OMPSetMaxThreadCount(1); // else the others may be done before this one is asked
    EXPECT_FALSE(zip.ExtractZip(archive, Wide("out"), true));
    EXPECT_EQ(zip.GetFailure(), CXExtractionFailure::kCancelled);
    EXPECT_EQ(Files("out").size(), Listed(zip).size());
    EXPECT_THAT(Listed(zip), testing::Not(IsEmpty()));
    for (const auto& [name, bytes] : Files("out"))
        EXPECT_EQ(bytes.size(), 20000u) << name;
    OMPSetMaxThreadCount(2);
    zip.m_watch = [](unsigned __int64, unsigned __int64 total) { return total == 0; };
    EXPECT_FALSE(zip.ExtractZip(archive, {}, false));
    EXPECT_EQ(TemporaryCount(), 0);
    zip.m_watch = [](unsigned __int64, unsigned __int64) -> bool { throw std::runtime_error("mine"); };
    EXPECT_FALSE(zip.ExtractZip(archive, Wide("out 2"), true));
    zip.m_watch = nullptr;
    SetCancelThread(true, 0);
    EXPECT_FALSE(zip.ExtractZip(archive, Wide("out 2"), true));
    SetCancelThread(false, 0);
    EXPECT_TRUE(zip.ExtractZip(archive, Wide("out 2"), true));
    EXPECT_EQ(zip.GetFailure(), CXExtractionFailure::kNone);

    m_folder.WriteFile("noise", Noise(1000000));
    Shell("gzip -k " + Path("noise") + " && zstd " + Path("noise"));
    zip.m_watch = [&](unsigned __int64 processed, unsigned __int64 total) { return processed < total / 2; };
    EXPECT_FALSE(zip.ExtractZFile(Wide("noise.gz"), Wide("noise"), false));
    EXPECT_FALSE(zip.ExtractZFile(Wide("noise.zst"), Wide("noise"), false));
    EXPECT_TRUE(m_folder.ReadFile("noise") == Noise(1000000)) << "what stood there is as it was";
}

/// Runs the extraction in a process that cannot write files beyond a size, as on a full disk; answers its answer.
bool ExtractWhereFilesMustBeSmall(const Text& source, const Text& destination)
{
    const pid_t process = fork();
    if (process == 0)
    {
        const rlimit small = {100'000, 100'000};
        setrlimit(RLIMIT_FSIZE, &small);
        signal(SIGXFSZ, SIG_IGN);
        CMiniZip zip;
        const bool isZFile = CMiniZip::IsZFile(source);
        OMPSetMaxThreadCount(isZFile ? 2 : 1); // a child has none of its parent's threads for loops
        const bool isDone =
            isZFile ? zip.ExtractZFile(source, destination, true) : zip.ExtractZip(source, destination, true);
        _exit(isDone ? 1 : zip.GetExtractedFiles().GetSize() == (isZFile ? 0 : 1) ? 0 : 2);
    }
    int status = 0;
    waitpid(process, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 1;
}

TEST_F(MiniZip, FullDiskLeavesNoHalfFile)
{
    const Text archive = WriteZip({{"fits", "x"}, {"large", Noise(200'000)}, {"behind", "x"}});
    m_folder.WriteFile("noise", Noise(1'200'000));
    Shell("gzip -k " + Path("noise") + " && zstd " + Path("noise"));
    EXPECT_FALSE(ExtractWhereFilesMustBeSmall(archive, Wide("out")));
    EXPECT_FALSE(ExtractWhereFilesMustBeSmall(Wide("noise.gz"), Wide("out/gz")));
    EXPECT_FALSE(ExtractWhereFilesMustBeSmall(Wide("noise.zst"), Wide("out/zst")));
    EXPECT_EQ(Files("out"), (Contents{{"fits", "x"}}));
}

// Streams

TEST_F(MiniZip, RecognisesStreamsByTheirFirstBytes)
{
    const struct
    {
        std::string m_bytes;
        bool m_isGZip, m_isZStd;
    } cases[] = {
        {"", false, false},
        {"\x1F", false, false},
        {"\x1F\x8B", true, false},
        {"\x1F\x9D rest", false, false},
        {"\x28\xB5\x2F", false, false},
        {"\x28\xB5\x2F\xFD", false, true},
        {"\xFD\x2F\xB5\x28 rest", false, true},
        {"\xFD\x2F\xB5\xFD", false, false},
    };
    for (const auto& [bytes, isGZip, isZStd] : cases)
    {
        const Text path = m_folder.WriteFile("model.zip", bytes).c_str();
        EXPECT_EQ(CMiniZip::IsGZipFile(path), isGZip) << bytes;
        EXPECT_EQ(CMiniZip::IsZStdFile(path), isZStd) << bytes;
        EXPECT_EQ(CMiniZip::IsZFile(path), isGZip || isZStd) << bytes;
        CMiniZip zip;
        EXPECT_EQ(zip.ExtractZFile(path, Wide("out"), false), isGZip) << "a frame is needed";
        EXPECT_FALSE(!isZStd && zip.ExtractZStd(path, Wide("out"), false));
        EXPECT_FALSE(!isGZip && zip.ExtractGZip(path, Wide("out"), false));
    }
    EXPECT_FALSE(CMiniZip::IsZFile(Wide("none")));
    EXPECT_FALSE(CMiniZip::IsZFile(Wide("")));
}

/// What comes out of a stream of these bytes; nothing when that fails.
class MiniZipStream : public MiniZip
{
protected:
    std::optional<std::string> Unpack(const std::string& bytes)
    {
        const Text source = m_folder.WriteFile("source", bytes).c_str();
        CMiniZip zip;
        const bool isDone = zip.ExtractZFile(source, Wide("target"), false);
        EXPECT_EQ(zip.GetExtractedFiles().GetSize(), isDone ? 1 : 0);
        EXPECT_EQ(m_folder.Exists("target"), isDone) << "nothing half is left over";
        return isDone ? std::optional(m_folder.ReadFile("target")) : std::nullopt;
    }
    std::string Packed(const std::string& command, const std::string& contents)
    {
        m_folder.WriteFile("contents", contents);
        Shell(command + " <" + Path("contents") + " >" + Path("packed"));
        return m_folder.ReadFile("packed");
    }
};

TEST_F(MiniZipStream, GzipMembersGarbageAndDamage)
{
    const std::string a = Noise(300000);
    const std::string b = "second";
    const std::string packedA = Packed("gzip", a);
    const std::string packedB = Packed("gzip -9 -N", b);
    EXPECT_TRUE(Unpack(packedA) == a);
    EXPECT_TRUE(Unpack(Packed("gzip", "")) == "");
    EXPECT_TRUE(Unpack(packedA + packedB + packedA) == a + b + a);
    EXPECT_TRUE(Unpack(packedA + packedB + "\x1F") == a + b);
    EXPECT_TRUE(Unpack(packedB + std::string(1000, '\0')) == b);
    EXPECT_TRUE(Unpack(packedB + "garbage") == b);
    EXPECT_TRUE(Unpack(packedB + "\x1F\x8Bgarbage") == b);
    // Cut off or damaged: what came before.
    const std::optional<std::string> half = Unpack(packedA.substr(0, packedA.size() / 2));
    ASSERT_TRUE(half);
    EXPECT_GT(half->size(), a.size() / 3);
    EXPECT_TRUE(*half == a.substr(0, half->size()));
    std::string wrongChecksum = packedB;
    wrongChecksum[wrongChecksum.size() - 8] ^= 1;
    EXPECT_TRUE(Unpack(wrongChecksum) == b);
    EXPECT_TRUE(Unpack(packedA + packedB.substr(0, 5)) == a);
    EXPECT_TRUE(Unpack("\x1F\x8B"s) == "");
    EXPECT_TRUE(Unpack("\x1F\x8B\x09rest"s) == "");
}

TEST_F(MiniZipStream, ZstdFramesSkippableOnesAndDamage)
{
    const std::string a = Noise(500000);
    const std::string text(1'000'000, 'x');
    const std::string packedA = Packed("zstd -c --check", a);
    const std::string packedText = Packed("zstd -19 -c", text);
    const std::string skippable = "\x50\x2A\x4D\x18\x03\x00\x00\x00"
                                  "abc"s;
    EXPECT_TRUE(Unpack(packedA) == a);
    EXPECT_TRUE(Unpack(Packed("zstd -c", "")) == "");
    EXPECT_TRUE(Unpack(packedText + skippable + packedA + packedText + skippable) == text + a + text);
    EXPECT_TRUE(Unpack(packedA + "garbage") == std::nullopt);
    EXPECT_EQ(Unpack(packedA.substr(0, packedA.size() - 1)), std::nullopt);
    EXPECT_TRUE(Unpack(packedText + packedA.substr(0, 5)) == std::nullopt);
    std::string damaged = packedA;
    damaged[damaged.size() - 1] ^= 1; // the checksum
    EXPECT_TRUE(Unpack(damaged) == std::nullopt);
    EXPECT_TRUE(Unpack("\xFD\x2F\xB5\x28" + packedA.substr(4)) == std::nullopt);
    // A frame without data whose header asks for a window of 2 GiB, and one of 128 MiB.
    EXPECT_TRUE(Unpack("\x28\xB5\x2F\xFD\x00\xA8\x01\x00\x00"s) == std::nullopt);
    EXPECT_TRUE(Unpack("\x28\xB5\x2F\xFD\x00\x88\x01\x00\x00"s) == "");
}

TEST_F(MiniZipStream, DestinationIsReplacedOnlyByACompleteFile)
{
    const std::string packed = Packed("zstd -c", "new");
    m_folder.WriteFile("whole", packed);
    m_folder.WriteFile("cut", packed.substr(0, packed.size() - 2));
    m_folder.WriteFile("real", "old");
    fs::create_symlink("real", m_folder.Path("link"));
    CMiniZip zip;
    EXPECT_FALSE(zip.ExtractZStd(Wide("cut"), Wide("link"), false));
    EXPECT_EQ(m_folder.ReadFile("real"), "old");
    EXPECT_TRUE(zip.ExtractZStd(Wide("whole"), Wide("link"), false));
    EXPECT_EQ(m_folder.ReadFile("real"), "new") << "the link leads to it as before";
    EXPECT_EQ(zip.GetExtractedFiles()[0], Wide("link"));
    EXPECT_FALSE(zip.ExtractZStd(Wide("cut"), Wide("link"), true)) << "cleans first";
    EXPECT_FALSE(m_folder.Exists("real"));
    EXPECT_FALSE(zip.ExtractZStd(Wide("whole"), Wide("whole"), false));
    EXPECT_EQ(m_folder.ReadFile("whole"), packed);
}

// Both readers of archives do the same.

class PlainZip : public MiniZip, public testing::WithParamInterface<PlainZipReader::By>
{
protected:
    void SetUp() override
    {
        if (GetParam() == PlainZipReader::By::Miniz && Open("", WriteZip({{"a", ""}})) == nullptr)
            GTEST_SKIP() << "built without miniz";
    }
    std::unique_ptr<PlainZipReader> Open(const std::string& password, const Text& path)
    {
        return PlainZipReader::Open(path, password, GetParam());
    }
    static std::string Read(PlainZipReader& reader, std::uint64_t index, ZipReadResult expected = ZipReadResult::Done)
    {
        std::string contents;
        const auto append = [&](const void* bytes, std::size_t count) {
            contents.append(static_cast<const char*>(bytes), count);
            return true;
        };
        EXPECT_EQ(reader.Read(index, append), expected) << index;
        return contents;
    }
};

INSTANTIATE_TEST_SUITE_P(Readers, PlainZip, testing::Values(PlainZipReader::By::Miniz, PlainZipReader::By::Engine),
                         [](const auto& by) { return by.param == PlainZipReader::By::Miniz ? "Miniz" : "Engine"; });

TEST_P(PlainZip, ReadsWhatOtherProgramsMade)
{
    const std::string large = Noise(1'000'000) + std::string(3'000'000, 'x');
    m_folder.WriteFile("in/text.txt", "text");
    m_folder.WriteFile("in/sub/\xC3\xA9\xE2\x98\x83.bin", large);
    m_folder.WriteFile("in/empty", "");
    fs::create_symlink("text.txt", m_folder.Path("in/link"));
    Shell("touch -d '2001-09-09 01:46:40 UTC' " + Path("in/text.txt"));
    Shell("cd " + Path("in") +
          " && LC_ALL=C.UTF-8 zip -r -y ../zip.zip . && LC_ALL=C.UTF-8 bsdtar --format zip -cf ../bsd.zip *");
    for (const char* archive : {"zip.zip", "bsd.zip"})
    {
        const auto first = Open("", Wide(archive));
        ASSERT_NE(first, nullptr) << archive;
        const auto reader = first->Another();
        Contents files;
        for (std::uint64_t i = 0; i < reader->Count(); ++i)
        {
            PlainZipEntry entry;
            ASSERT_TRUE(reader->GetEntry(i, entry)) << i;
            EXPECT_EQ(entry.kind == ZipEntryKind::Folder, entry.name.back() == '/');
            EXPECT_EQ(entry.kind == ZipEntryKind::Special, entry.name == "link");
            if (entry.kind == ZipEntryKind::File)
            {
                files[entry.name] = Read(*reader, i);
                EXPECT_EQ(files[entry.name].size(), entry.size);
                EXPECT_FALSE(entry.isEncrypted);
            }
            EXPECT_EQ(entry.lastWrite == 1000000000, entry.name == "text.txt") << entry.name;
        }
        EXPECT_THAT(files, testing::Contains(testing::Key("sub/\xC3\xA9\xE2\x98\x83.bin"))) << archive;
        EXPECT_TRUE((files == Contents{{"text.txt", "text"}, {"sub/\xC3\xA9\xE2\x98\x83.bin", large}, {"empty", ""}}));
        EXPECT_EQ(Read(*reader, reader->Count(), ZipReadResult::Damaged), "");
    }
}

TEST_P(PlainZip, ReportsWhatIsWrong)
{
    const std::string text(100000, 'x');
    RawEntry damaged{"a", text, true};
    damaged.checksum = 1;
    RawEntry unknown{"b", text};
    unknown.method = 77;
    const auto reader = Open("", WriteZip({damaged, unknown, {"c", text, true}}));
    ASSERT_NE(reader, nullptr);
    Read(*reader, 0, ZipReadResult::Damaged);
    EXPECT_EQ(Read(*reader, 1, ZipReadResult::Unsupported), "");
    std::size_t taken = 0;
    const auto stop = [&](const void*, std::size_t count) {
        taken += count;
        return false;
    };
    EXPECT_EQ(reader->Read(2, stop), ZipReadResult::Stopped);
    EXPECT_LE(taken, text.size());
    const auto fail = [](const void*, std::size_t) -> bool { throw std::runtime_error("mine"); };
    EXPECT_THROW(reader->Read(2, fail), std::runtime_error);
    EXPECT_TRUE(Read(*reader, 2) == text) << "begins anew";
    EXPECT_EQ(Open("", Wide("none")), nullptr);
    EXPECT_EQ(Open("", Wide("")), nullptr);
    const std::string archive = RawZip({{"a", text, true}, {"b", text}});
    for (const std::size_t size : {std::size_t{0}, std::size_t{10}, archive.size() / 2, archive.size() - 1})
        EXPECT_EQ(Open("", m_folder.WriteFile("cut", archive.substr(0, size)).c_str()), nullptr) << size;
}

TEST_P(PlainZip, EncryptedEntriesNeedTheEngineAndThePassword)
{
    m_folder.WriteFile("in/secret", Noise(5000));
    m_folder.WriteFile("in/plain", "plain");
    Shell("cd " + Path("in") + " && zip -P right ../secret.zip secret && zip ../secret.zip plain");
    const bool canDecrypt = GetParam() == PlainZipReader::By::Engine;
    const auto reader = Open("right", Wide("secret.zip"));
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(Read(*reader, 0, canDecrypt ? ZipReadResult::Done : ZipReadResult::Unsupported),
              canDecrypt ? Noise(5000) : "");
    EXPECT_EQ(Read(*reader, 1), "plain");
    if (canDecrypt)
    {
        Read(*Open("", Wide("secret.zip")), 0, ZipReadResult::WrongPassword);
        Read(*Open("wrong", Wide("secret.zip")), 0, ZipReadResult::WrongPassword);
    }

    CMiniZip zip;
    EXPECT_TRUE(zip.ExtractZip(Wide("secret.zip"), Wide("out"), false));
    ASSERT_EQ(zip.GetSkippedEntries().size(), 1u);
    EXPECT_EQ(zip.GetSkippedEntries()[0].m_reason, CXSkipReason::kWrongPassword);
    zip.SetPassword(L"right");
    EXPECT_TRUE(zip.ExtractZip(Wide("secret.zip"), Wide("out"), false));
    EXPECT_TRUE((Files("out") == Contents{{"secret", Noise(5000)}, {"plain", "plain"}}));
}

TEST_P(PlainZip, ManyEntriesNeedTheLongForm)
{
    // More than the 16-bit count can hold, written by another program.
    Shell("python3 -c \"import zipfile; z = zipfile.ZipFile('" + Path("many.zip") +
          "', 'w'); [z.writestr(str(i), str(i)) for i in range(70000)]; z.close()\"");
    const auto reader = Open("", Wide("many.zip"));
    ASSERT_NE(reader, nullptr);
    ASSERT_EQ(reader->Count(), 70000u);
    PlainZipEntry entry;
    EXPECT_TRUE(reader->GetEntry(69999, entry));
    EXPECT_EQ(entry.name, "69999");
    EXPECT_EQ(Read(*reader, 69999), "69999");
}

/// An archive with a hole: a stored entry of 5 GiB of zeros, and a small one behind it.
Text WriteSparseZip(const TempFolder& folder)
{
    constexpr std::uint64_t kLarge = std::uint64_t{5} << 30;
    const auto n = [](std::uint64_t value, int size) { return LittleEndianText(value, size); };
    const std::uint32_t checksum = crc32_z(0, reinterpret_cast<const Bytef*>("small"), 5);
    const auto fields = [&](const std::string& sizes, const std::string& name, std::uint64_t extraSize) {
        return n(45, 2) + n(0x0800, 2) + n(0, 2) + n(0x5A210000, 4) + sizes + n(name.size(), 2) + n(extraSize, 2);
    };
    const std::string unknown = n(0xFFFFFFFF, 4);
    const std::string small = n(checksum, 4) + n(5, 4) + n(5, 4);
    const std::string first = "PK\3\4" + fields(n(0, 4) + unknown + unknown, "large", 20) + "large" + n(1, 2) +
                              n(16, 2) + n(kLarge, 8) + n(kLarge, 8);
    const std::uint64_t secondAt = first.size() + kLarge;
    const std::string second = "PK\3\4" + fields(small, "small", 0) + "small" + "small";
    const auto central = [&](const std::string& start, const std::string& offset) {
        return "PK\1\2" + n(0x032D, 2) + start + std::string(10, '\0') + offset;
    };
    const std::string directory = central(fields(n(0, 4) + unknown + unknown, "large", 20), n(0, 4)) + "large" +
                                  n(1, 2) + n(16, 2) + n(kLarge, 8) + n(kLarge, 8) +
                                  central(fields(small, "small", 12), unknown) + "small" + n(1, 2) + n(8, 2) +
                                  n(secondAt, 8);
    const std::uint64_t directoryAt = secondAt + second.size();
    const std::string end = "PK\6\6" + n(44, 8) + n(45, 2) + n(45, 2) + n(0, 8) + n(2, 8) + n(2, 8) +
                            n(directory.size(), 8) + n(directoryAt, 8) + "PK\6\7" + n(0, 4) +
                            n(directoryAt + directory.size(), 8) + n(1, 4) + "PK\5\6" + n(0, 4) + n(2, 2) + n(2, 2) +
                            unknown + unknown + n(0, 2);
    const std::wstring path = folder.WriteFile("sparse.zip", first);
    std::ofstream file(folder.Path("sparse.zip"), std::ios::binary | std::ios::in);
    file.seekp(static_cast<std::streamoff>(secondAt));
    file << second << directory << end;
    return path.c_str();
}

TEST_P(PlainZip, EntriesAboveFourGigabytes)
{
    const Text archive = WriteSparseZip(m_folder);
    const auto reader = Open("", archive);
    ASSERT_NE(reader, nullptr);
    ASSERT_EQ(reader->Count(), 2u);
    PlainZipEntry entry;
    ASSERT_TRUE(reader->GetEntry(0, entry));
    EXPECT_EQ(entry.size, std::uint64_t{5} << 30);
    const auto stop = [](const void* bytes, std::size_t count) {
        EXPECT_TRUE(count > 0 && *static_cast<const char*>(bytes) == 0);
        return false;
    };
    EXPECT_EQ(reader->Read(0, stop), ZipReadResult::Stopped);
    EXPECT_EQ(Read(*reader, 1), "small");

    CMiniZip zip;
    zip.SetLimits({std::uint64_t{1} << 30, 100});
    EXPECT_TRUE(zip.ExtractZip(archive, Wide("out"), false));
    EXPECT_EQ(Files("out"), (Contents{{"small", "small"}}));
    ASSERT_EQ(zip.GetSkippedEntries().size(), 1u);
    EXPECT_EQ(zip.GetSkippedEntries()[0].m_reason, CXSkipReason::kTooLarge);
}
} // namespace
