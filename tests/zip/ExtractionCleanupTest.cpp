#include "zip/CMiniZip.h"

#include "tests/support/Eventually.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/MiniZipFixture.h"
#include "threads/CCustomThread.h"
#include "threads/ThreadRelations.h"

namespace
{
using namespace tev::test;
using testing::ElementsAre;
using testing::IsEmpty;

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

/// Unpacks on its thread what it was told to, and is marked as to be ended by its first report of progress.
class MarkedUnpacker : public CCustomThread
{
public:
    std::function<void(MarkedUnpacker&)> m_mark;
    std::function<bool(CMiniZip&)> m_unpack;
    bool m_isComplete = true;
    CXExtractionFailure m_failure{};

protected:
    bool Run() override
    {
        Watched zip;
        zip.m_watch = [this](unsigned __int64, unsigned __int64) {
            if (m_mark)
                std::exchange(m_mark, nullptr)(*this);
            return true;
        };
        m_isComplete = m_unpack(zip);
        m_failure = zip.GetFailure();
        return true;
    }
};

TEST_F(MiniZip, AThreadThatIsToEndStopsUnpacking)
{
    std::vector<RawEntry> entries;
    for (int i = 0; i < 50; ++i)
        entries.push_back({std::to_string(i), Noise(20000)});
    const Text archive = WriteZip(entries);
    m_folder.WriteFile("noise", Noise(1000000));
    Shell("gzip " + Path("noise"));
    OMPSetMaxThreadCount(1); // else the others may be done before this one is asked
    const std::function<void(MarkedUnpacker&)> marks[] = {
        [](MarkedUnpacker& self) { self.SetCancel(); }, [](MarkedUnpacker& self) { self.StopThread(); },
        [](MarkedUnpacker& self) { SetCancelThread(true, self.GetThreadID()); },
        [](MarkedUnpacker&) { CCustomThread::AskForThreadsEnd(false); }};
    const std::function<bool(CMiniZip&)> works[] = {
        [&](CMiniZip& zip) { return zip.ExtractZip(archive, Wide("out"), true); },
        [&](CMiniZip& zip) { return zip.ExtractZFile(Wide("noise.gz"), Wide("noise"), true); }};
    for (const auto& mark : marks)
    {
        for (const auto& work : works)
        {
            MarkedUnpacker unpacker;
            unpacker.m_mark = mark;
            unpacker.m_unpack = work;
            CXThread::BeginThread(&unpacker, xThreadPriorityNormal, CXThread::kBeginWithoutAutoDelete, 0);
            EXPECT_TRUE(unpacker.WaitForEnd(kLongTimeMs));
            EXPECT_FALSE(unpacker.m_isComplete);
            EXPECT_EQ(unpacker.m_failure, CXExtractionFailure::kCancelled);
        }
        EXPECT_TRUE(CCustomThread::EndThreads(kLongTimeMs));
        EXPECT_LT(Files("out").size(), entries.size());
        for (const auto& [name, bytes] : Files("out"))
            EXPECT_EQ(bytes.size(), 20000u) << name;
        fs::remove_all(m_folder.Path("out"));
    }
    EXPECT_FALSE(m_folder.Exists("noise"));
}

/// Runs the extraction in a process that cannot write files beyond a size, as on a full disk; answers its answer.
bool ExtractWhereFilesMustBeSmall(const Text& source, const Text& destination)
{
    const int result = ResultInChild([&] {
        const rlimit small = {100'000, 100'000};
        setrlimit(RLIMIT_FSIZE, &small);
        signal(SIGXFSZ, SIG_IGN);
        CMiniZip zip;
        const bool isZFile = CMiniZip::IsZFile(source);
        OMPSetMaxThreadCount(isZFile ? 2 : 1); // a child has none of its parent's threads for loops
        const bool isDone =
            isZFile ? zip.ExtractZFile(source, destination, true) : zip.ExtractZip(source, destination, true);
        return isDone ? 1 : zip.GetExtractedFiles().GetSize() == (isZFile ? 0 : 1) ? 0 : 2;
    });
    EXPECT_EQ(result, 0);
    return result == 1;
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
} // namespace
