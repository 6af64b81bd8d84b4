#include "tests/support/FailingAllocations.h"
#include "tests/support/FailingFileSystem.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/MiniZipFixture.h"
#include "tests/support/NoUnnamedFiles.h"
#include "tests/support/Sanitized.h"
#include "tests/support/ZipTools.h"
#include "zip/ZipExtraction.h"

namespace
{
off_t g_badFrom = -1; ///< where reading files fails, with the error
int g_badError = EIO;
} // namespace

// In place of the C library's function in this program.
extern "C" ssize_t pread(int file, void* bytes, std::size_t count, off_t at)
{
    if (g_badFrom >= 0 && at >= g_badFrom)
    {
        errno = g_badError;
        return -1;
    }
    if (g_badFrom >= 0)
        count = std::min(count, static_cast<std::size_t>(g_badFrom - at));
    return syscall(SYS_pread64, file, bytes, count, at);
}

// What an extraction leaves when memory, descriptors or space run out, or its process is killed.

namespace
{
using namespace tev::test;
using Failure = CXExtractionFailure;

class ExtractionFailure : public MiniZip
{
protected:
    void SetUp() override
    {
        OMPSetMaxThreadCount(1); // allocations fail on the thread of the test only
        m_archive = WriteZip({{"a", m_text, true}, {"folder/b", m_text}});
    }
    const std::string m_text = std::string(1000, 'x') + Noise(1000);
    const Contents m_both = {{"a", m_text}, {"folder/b", m_text}};
    Text m_archive;
};

TEST_F(ExtractionFailure, LackOfMemoryThrowsNothingAndIsNoDamage)
{
    UseOwnTemporaryFolder();
    fs::create_directory(m_folder.Path("out"));
    const Text nowhere;
    const Text out = Wide("out");
    Shell("cd " + Path("") +
          " && printf new >new && gzip -k new && zstd -q new && mkdir in && cp new in && cd in && zip -P key "
          "../secret.zip new");
    const Text secret = Wide("secret.zip");
    const Text key = L"key";
    const unsigned count = FailEachAllocation([&](FailingAllocations& failing) {
        for (const bool isTemporary : {true, false})
        {
            CMiniZip zip;
            bool isDone = false;
            EXPECT_TRUE(failing.Run([&] { isDone = zip.ExtractZip(m_archive, isTemporary ? nowhere : out, false); }));
            EXPECT_EQ(zip.GetFailure(), isDone ? Failure::kNone : Failure::kNoMemory);
            EXPECT_TRUE(zip.GetSkippedEntries().empty());
            EXPECT_TRUE(!isDone || isTemporary || Files("out") == m_both);
            EXPECT_TRUE(!isDone || zip.GetExtractedFiles().GetSize() == 2);
            EXPECT_TRUE(failing.Run([&] { zip.Clean(); }));
            EXPECT_EQ(TemporaryCount(), 0);
            EXPECT_TRUE(isTemporary || Files("out").empty());
        }
    });
    EXPECT_GT(count, 20u);
    FailEachAllocation([&](FailingAllocations& failing) {
        CMiniZip zip;
        bool isDone = false;
        EXPECT_TRUE(failing.Run([&] {
            zip.SetPassword(key);
            isDone = zip.ExtractZip(secret, out, false);
        }));
        EXPECT_EQ(zip.GetFailure(), isDone ? Failure::kNone : Failure::kNoMemory);
        EXPECT_TRUE(zip.GetSkippedEntries().empty());
    });
    for (const char* const name : {"new.gz", "new.zst"})
    {
        const Text source = Wide(name);
        const Text target = Wide("target");
        FailEachAllocation([&](FailingAllocations& failing) {
            m_folder.WriteFile("target", "old");
            CMiniZip zip;
            bool isDone = false;
            EXPECT_TRUE(failing.Run([&] { isDone = zip.ExtractZFile(source, target, true); }));
            EXPECT_EQ(m_folder.ReadFile("target"), isDone ? "new" : "old") << name;
            EXPECT_EQ(zip.GetFailure(), isDone ? Failure::kNone : Failure::kNoMemory);
        });
    }
}

TEST_F(ExtractionFailure, LackOfMemoryWhereAesIsSetUpIsAFailureToo)
{
    const Text archive = Wide("aes.zip");
    const Text out = Wide("out");
    m_folder.WriteFile("file", m_text);
    const auto add = [&](CZip& zip) {
        zip.SetPassword(L"key");
        return zip.AddNewFile(Wide("file"), false, zipLevelDefault);
    };
    // In children, as it is set up once in a process, with its first allocations.
    ASSERT_EQ(ResultInChild([&] { return ChangeArchive(archive.GetConstBuffer(), zipCreate, add) ? 0 : 1; }), 0);
    for (unsigned which = 1; which < 300; which += 5)
    {
        const int ending = ResultInChild([&] {
            FailingAllocations failing(which);
            CMiniZip zip;
            zip.SetPassword(L"key");
            bool isDone = false;
            const bool throwsNothing = failing.Run([&] { isDone = zip.ExtractZip(archive, out, false); });
            const bool isTrue = isDone ? Files("out").size() == 1 : zip.GetFailure() == Failure::kNoMemory;
            return throwsNothing && isTrue ? 0 : 1;
        });
        EXPECT_EQ(ending, 0) << which;
    }
}

TEST_F(ExtractionFailure, LackOfDescriptorsEndsTheExtractionAndLeavesNothing)
{
    if (kIsSanitized)
        GTEST_SKIP() << "the sanitizer looks at types of objects through a pipe";
    UseOwnTemporaryFolder();
    m_folder.WriteFile("text", m_text);
    Shell("cd " + Path("") + " && gzip -k text && zstd -q text");
    const std::tuple<Text, int, Text> cases[] = {{m_archive, 2, {}},
                                                 {Wide("text.gz"), 1, {}},
                                                 {Wide("text.gz"), 1, Wide("tmp/text")},
                                                 {Wide("text.zst"), 1, Wide("tmp/text")}};
    for (const auto& row : cases)
    {
        bool hasFailed = false;
        bool hasSucceeded = false;
        for (int free = 0; free < 16; ++free)
        {
            const int result = ResultInChild([&] {
                const auto& [source, count, target] = row;
                const rlimit few = {64, 64};
                setrlimit(RLIMIT_NOFILE, &few);
                int last = -1;
                for (int next = last; (next = open("/dev/null", O_RDONLY)) >= 0;)
                    last = next;
                for (int i = 0; i < free; ++i)
                    close(last - i);
                CMiniZip zip;
                const bool isDone = target.IsEmpty() ? zip.ExtractAny(source) : zip.ExtractZFile(source, target, false);
                const bool isRight = isDone ? zip.GetExtractedFiles().GetSize() == count
                                            : zip.GetFailure() == Failure::kTooManyOpenFiles;
                return !isRight || !zip.GetSkippedEntries().empty() ? 2 : isDone ? 1 : 0;
            });
            ASSERT_TRUE(result == 0 || result == 1) << free << ": " << result;
            (result == 1 ? hasSucceeded : hasFailed) = true;
            EXPECT_EQ(TemporaryCount(), 0) << free;
        }
        EXPECT_TRUE(hasFailed && hasSucceeded);
    }
}

TEST_F(ExtractionFailure, NothingIsHeldOpenThatNeedsNoCleaningUp)
{
    m_folder.WriteFile("text", m_text);
    Shell("cd " + Path("") + " && gzip -k text && zstd -q text");
    m_folder.WriteFile("cut.zst", m_folder.ReadFile("text.zst").substr(0, 100));
    const auto before = OpenDescriptors();
    CMiniZip zip;
    for (const char* const name : {"text.gz", "text.zst"})
    {
        EXPECT_TRUE(zip.ExtractZFile(Wide(name), Wide("out"), false));
        EXPECT_GT(OpenDescriptors(), before) << "to clean up";
        EXPECT_TRUE(zip.ExtractZFile(Wide(name), Wide("out"), true));
        EXPECT_EQ(OpenDescriptors(), before) << name;
    }
    EXPECT_FALSE(zip.ExtractZFile(Wide("cut.zst"), Wide("out"), false));
    EXPECT_EQ(OpenDescriptors(), before);
    EXPECT_EQ(m_folder.ReadFile("out"), m_text);
}

TEST_F(ExtractionFailure, AFailureAfterAPartIsNoDamage)
{
    const Text archive = WriteZip({{"first", "1"}, {"second", Noise(300'000)}, {"third", Noise(300'000), true}});
    for (const auto& [error, failure] : {std::pair(EIO, Failure::kNone), std::pair(ENOMEM, Failure::kNoMemory)})
    {
        Watched watched;
        // From when the directory has been read.
        watched.m_watch = [&, error = error](unsigned __int64, unsigned __int64 total) {
            g_badFrom = total != 0 ? 100'000 : -1;
            g_badError = error;
            return true;
        };
        EXPECT_EQ(watched.ExtractZip(archive, Wide("out"), true), failure == Failure::kNone);
        g_badFrom = -1;
        EXPECT_EQ(watched.GetFailure(), failure);
        EXPECT_EQ(Files("out"), (Contents{{"first", "1"}}));
        using R = CXSkipReason;
        if (failure == Failure::kNone)
        {
            EXPECT_THAT(SkippedBy(watched), testing::ElementsAre(std::pair(std::wstring(L"second"), R::kUnreadable),
                                                                 std::pair(std::wstring(L"third"), R::kUnreadable)));
        }
    }
    unsigned failures = 0;
    for (unsigned n = 1;; ++n)
    {
        CZip zip;
        ASSERT_TRUE(zip.Open(archive, zipOpenReadOnly, false, nullptr));
        FailingFileSystem files;
        files.LimitTransfer(10'000);
        files.FailAt(n, EIO);
        const ZipExtractResult result = zip.TestFile(1);
        if (files.FailedStep().empty())
        {
            EXPECT_EQ(result, zipExtracted);
            break;
        }
        ++failures;
        EXPECT_EQ(zip.GetLastFailure(), XZipFailure::kSystem) << n;
    }
    EXPECT_GT(failures, 30u);
}

TEST_F(ExtractionFailure, LackOfMemoryWhileWritingIsNoFullDisk)
{
    if (kIsSanitized)
        GTEST_SKIP() << "a sanitizer writes, too";
    if (!CanForbidUnnamedFiles())
        GTEST_SKIP() << "the system does not permit to filter its calls";
    m_folder.WriteFile("noise", Noise(1'200'000));
    Shell("cd " + Path("") + " && gzip -k noise && zstd -q noise && zip -q noise.zip noise");
    for (const auto& [error, failure] :
         {std::pair(ENOMEM, Failure::kNoMemory), std::pair(ENOSPC, Failure::kNotWritable)})
    {
        for (const char* const name : {"noise.gz", "noise.zst", "noise.zip"})
        {
            for (const unsigned threads : {1u, 2u})
            {
                const auto extract = [&, error = error] {
                    OMPSetMaxThreadCount(threads);
                    CMiniZip zip;
                    if (!ForbidCall(SYS_write, static_cast<unsigned>(error)))
                        return 100;
                    const bool isDone = std::string(name) == "noise.zip"
                                            ? zip.ExtractZip(Wide(name), Wide("out"), true)
                                            : zip.ExtractZFile(Wide(name), Wide("to"), true);
                    return isDone ? 101 : static_cast<int>(zip.GetFailure());
                };
                EXPECT_EQ(ResultInChild(extract), static_cast<int>(failure)) << name << " " << threads;
            }
        }
    }
}

TEST_F(ExtractionFailure, AReplacedFileLeavesItsPermissionsAndOwner)
{
    constexpr uid_t kOther = 1234;
    m_folder.WriteFile("packed", m_text);
    Shell("cd " + Path("") + " && gzip -k packed && zstd -q packed");
    RawEntry ofDos{"target", m_text};
    ofDos.host = 0;
    RawEntry ofUnix = ofDos;
    ofUnix.host = 3;
    ofUnix.attributes = 0100755u << 16;
    m_folder.WriteFile("dos.zip", RawZip({ofDos}));
    m_folder.WriteFile("unix.zip", RawZip({ofUnix}));
    const mode_t mask = umask(022);
    for (const bool isSingle : {false, true})
    {
        for (const char* const name : {"packed.gz", "packed.zst", "dos.zip", "unix.zip"})
        {
            m_folder.WriteFile("target", "old");
            ASSERT_EQ(chmod(Path("target").c_str(), 04640), 0);
            const bool isOthers = geteuid() == 0 && chown(Path("target").c_str(), kOther, kOther) == 0;
            const bool isStream = std::string(name).find(".zip") == std::string::npos;
            CMiniZip zip;
            CZip single;
            bool isDone = false;
            if (isStream)
                isDone = zip.ExtractZFile(Wide(name), Wide("target"), true);
            else if (!isSingle)
                isDone = zip.ExtractZip(Wide(name), Wide("."), true);
            else if (single.Open(Wide(name), zipOpenReadOnly, false, nullptr))
                isDone = single.ExtractFile(0, Wide("."), true, nullptr, false) == zipExtracted;
            EXPECT_TRUE(isDone) << name;
            EXPECT_EQ(m_folder.ReadFile("target"), m_text);
            struct stat status = {};
            ASSERT_EQ(stat(Path("target").c_str(), &status), 0);
            EXPECT_EQ(status.st_mode & 07777, std::string(name) == "unix.zip" ? 0755u : 0640u) << name;
            EXPECT_EQ(status.st_uid, isOthers ? kOther : geteuid()) << name;
            EXPECT_EQ(status.st_gid, isOthers ? kOther : getegid()) << name;
        }
    }
    umask(mask);
}

/// Three files, of which the second cannot be read.
class UnreadableArchive final : public tev::platform::PlainZipReader
{
public:
    explicit UnreadableArchive(unsigned systemError) : m_systemError(systemError) {}
    std::unique_ptr<PlainZipReader> Another() const override
    {
        return std::make_unique<UnreadableArchive>(m_systemError);
    }
    std::uint64_t Count() const override { return 3; }
    bool GetEntry(std::uint64_t index, tev::platform::PlainZipEntry& entry) const override
    {
        entry.name = std::to_string(index);
        entry.size = entry.compressedSize = 1;
        return true;
    }
    tev::platform::ZipError Read(std::uint64_t index, const tev::platform::ZipSink& sink) override
    {
        if (index == 1)
            return {tev::platform::ZipFailure::System, m_systemError};
        EXPECT_TRUE(sink("x", 1, 1));
        return {};
    }

private:
    const unsigned m_systemError;
};

TEST_F(ExtractionFailure, WhatCannotBeReadIsSkippedUnlessNothingElseCan)
{
    const std::tuple<unsigned, Failure, std::size_t> cases[] = {{23, Failure::kNone, 2}, // the device failed
                                                                {5, Failure::kNone, 2},
                                                                {8, Failure::kNoMemory, 1},
                                                                {4, Failure::kTooManyOpenFiles, 1}};
    const tev::ExtractionProgress progress = [](std::uint64_t, std::uint64_t) { return true; };
    for (const auto& [systemError, failure, written] : cases)
    {
        UnreadableArchive archive(systemError);
        const auto folder = tev::platform::ContainedFolder::Open(m_folder.WidePath().c_str());
        tev::ZipExtraction extraction(archive, *folder, {}, progress);
        EXPECT_EQ(extraction.Run(), failure) << systemError;
        EXPECT_EQ(extraction.Written().size(), written) << systemError;
        ASSERT_EQ(extraction.Skipped().size(), written - 1) << systemError;
        for (const auto& skipped : extraction.Skipped())
            EXPECT_EQ(skipped.m_reason, CXSkipReason::kUnreadable) << systemError;
    }
}

TEST_F(ExtractionFailure, MoreThanFitsIsNotBegun)
{
    std::vector<RawEntry> entries = {{"folder/", ""}, {"folder/inner/", ""}};
    for (int i = 0; i < 4'000; ++i) // 16 TiB, by their headers
    {
        entries.push_back({std::to_string(i), "x", true});
        entries.back().size = 0xFFFFFFFE;
    }
    Watched zip;
    zip.SetLimits({~0ull, ~0ull});
    zip.m_watch = [](unsigned __int64, unsigned __int64 total) {
        EXPECT_EQ(total, 0u) << "has begun";
        return true;
    };
    EXPECT_FALSE(zip.ExtractZip(WriteZip(entries), Wide("out"), true));
    EXPECT_EQ(zip.GetFailure(), Failure::kNotWritable);
    EXPECT_TRUE(fs::is_empty(m_folder.Path("out"))) << "no folder either";

    // What cannot be unpacked takes no space.
    for (std::size_t i = 2; i < entries.size(); ++i)
    {
        if (i % 2 == 0)
            entries[i].method = 77;
        else
            entries[i].flags |= 1; // encrypted
    }
    entries.push_back({"sound", "x"});
    zip.m_watch = [](unsigned __int64, unsigned __int64 total) { return total <= 1; };
    EXPECT_TRUE(zip.ExtractZip(WriteZip(entries), Wide("out"), true));
    EXPECT_EQ(Files("out"), (Contents{{"sound", "x"}}));
    EXPECT_TRUE(fs::is_directory(m_folder.Path("out/folder/inner")));
    ASSERT_EQ(zip.GetSkippedEntries().size(), 4'000u);
    EXPECT_EQ(zip.GetSkippedEntries()[0].m_reason, CXSkipReason::kUnsupported);
    EXPECT_EQ(zip.GetSkippedEntries()[1].m_reason, CXSkipReason::kWrongPassword);
}

TEST_F(ExtractionFailure, AKilledProcessLeavesNoPartOfAFile)
{
    const Text archive = WriteZip({{"first", "whole"}, {"second", Noise(500'000)}, {"third", "whole"}});
    m_folder.WriteFile("out/second", "old");
    for (const bool areNamed : {false, CanForbidUnnamedFiles()})
    {
        const int ending = ResultInChild([&] {
            OMPSetMaxThreadCount(1);
            Watched zip;
            zip.m_watch = [](unsigned __int64 processed, unsigned __int64) {
                return processed < 200'000 || raise(SIGKILL) != 0;
            };
            return (!areNamed || ForbidUnnamedFiles()) && zip.ExtractZip(archive, Wide("out"), true);
        });
        ASSERT_EQ(ending, kBySignal + SIGKILL);
        EXPECT_EQ(m_folder.ReadFile("out/first"), "whole");
        EXPECT_EQ(m_folder.ReadFile("out/second"), "old");
        EXPECT_EQ(m_folder.Names("out").size(), areNamed ? 3U : 2U) << "and the temporary file";
    }

    // One that is being written is locked.
    m_folder.WriteFile("out/.tevtools-3-4.tmp", "being written");
    m_folder.WriteFile("out/.tevtools-mine.tmp", "a user's");
    const int writer = open(Path("out/.tevtools-3-4.tmp").c_str(), O_WRONLY);
    ASSERT_EQ(flock(writer, LOCK_EX), 0);
    CMiniZip zip;
    EXPECT_TRUE(zip.ExtractZip(archive, Wide("out"), true));
    close(writer);
    EXPECT_EQ(m_folder.Names("out"),
              (std::set<std::string>{"first", "second", "third", ".tevtools-3-4.tmp", ".tevtools-mine.tmp"}));
}
} // namespace
