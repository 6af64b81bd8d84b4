#include "zip/CMiniZip.h"

#include "tests/support/ForkedChild.h"
#include "tests/support/MiniZipFixture.h"
#include "tests/support/Sanitized.h"

#include <sys/stat.h>

namespace
{
using namespace tev::test;
using testing::ElementsAre;

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

TEST_F(MiniZip, AChildForkedMeanwhileComesToAnEnd)
{
    if (kIsSanitized)
        GTEST_SKIP() << "sanitizers do not follow a fork of several threads";
    const Text archive = WriteZip({{"a", Noise(4'000'000, 1), false}, {"b", Noise(4'000'000, 2), false}});
    OMPSetMaxThreadCount(2);
    int result = 0;
    for (int round = 0; round < 100 && result == 0; ++round) // until the other thread is at work, too
    {
        pid_t child = -1;
        Watched zip;
        zip.m_watch = [&](unsigned __int64 processed, unsigned __int64) {
            if (processed == 0 || child != -1)
                return true;
            if ((child = fork()) == 0)
                alarm(30);
            else
                result = ResultOf(child);
            return true;
        };
        const bool isDone = zip.ExtractZip(archive, Wide("out" + std::to_string(round)), false);
        if (child == 0)
            _exit(isDone ? 0 : 1);
    }
    EXPECT_EQ(result, 1) << "the child lacks what the other thread had begun";
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
        {{"/../precious", "evil"}, CXSkipReason::kUnsafeName},
        {{"C:../precious", "evil"}, CXSkipReason::kUnsafeName},
        {{"..\\precious", "evil"}, CXSkipReason::kUnsafeName},
        {{"precious\0.txt"s, "evil"}, CXSkipReason::kUnsafeName},
        {{longName, "evil"}, CXSkipReason::kUnsafeName},
        {{"\xFF", "evil"}, CXSkipReason::kUnsafeName},
        {{"link/precious", "evil"}, CXSkipReason::kNotWritable},
        {{"leaf", "evil"}, CXSkipReason::kNotWritable},
        {{"taken", "evil"}, CXSkipReason::kNotWritable},
        {{"../made/", ""}, CXSkipReason::kUnsafeName},
        {{"link/made/", ""}, CXSkipReason::kNotWritable},
        {{"new link", Path("")}, CXSkipReason::kSpecialFile},
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
    RawEntry madeOnDos{"dos\\con.txt", "mine"};
    madeOnDos.host = 0;
    RawEntry upwardsOnDos{"..\\precious", "evil"};
    upwardsOnDos.host = 0;
    entries.insert(entries.end(),
                   {{"/etc/x", "mine"}, {"C:/x", "mine"}, {"nul.txt", "mine"}, {"HERE", "mine"}, madeOnDos});
    entries.insert(entries.begin() + 1, upwardsOnDos);
    CMiniZip zip;
    EXPECT_TRUE(zip.ExtractZip(WriteZip(entries), Wide("out"), false));
    EXPECT_THAT(Listed(zip), ElementsAre("out/here", "out/new link/precious", "out/caf\xC3\xA9", "out/etc/x", "out/x",
                                         "out/nul.txt", "out/HERE", "out/dos/con.txt"));
    EXPECT_EQ(m_folder.ReadFile("out/here"), "new");
    EXPECT_EQ(m_folder.ReadFile("precious"), "precious");
    EXPECT_EQ(m_folder.Names(), (std::set<std::string>{"a.zip", "out", "precious"}));

    ASSERT_EQ(zip.GetSkippedEntries().size(), unsafe.size() + 1);
    EXPECT_EQ(zip.GetSkippedEntries()[0].m_reason, CXSkipReason::kUnsafeName);
    for (std::size_t i = 0; i < unsafe.size(); ++i)
        EXPECT_EQ(zip.GetSkippedEntries()[i + 1].m_reason, unsafe[i].second) << unsafe[i].first.name;
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
} // namespace
