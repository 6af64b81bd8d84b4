#include "files/FileReplacement.h"

#include "files/CXArchive.h"
#include "files/RegularFile.h"
#include "files/ReplaceFile.h"
#include "objects/ThreadStatus.h"
#include "platform/ContainedFolder.h"
#include "tests/support/FailingAllocations.h"
#include "tests/support/FailingFileSystem.h"
#include "tests/support/FileFailure.h"
#include "tests/support/NoUnnamedFiles.h"
#include "tests/support/TempFolder.h"

namespace
{
using namespace tev;
using namespace tev::test;

constexpr TemporaryName kBothNamings[] = {TemporaryName::Own, TemporaryName::Suffix};

void Replace(const std::wstring& path, TemporaryName naming)
{
    FileReplacement replacement(path.c_str(), naming);
    replacement.Begin().Write("new", 3);
    replacement.Commit();
}

TEST(FileReplacement, ReachesTheDiskBeforeItTakesThePlace)
{
    const TempFolder folder;
    for (const TemporaryName naming : kBothNamings)
    {
        const std::wstring path = folder.WriteFile("file", "old");
        const FailingFileSystem files;
        Replace(path, naming);
        std::vector<std::string> expected = {"lock folder", "create", "write",  "sync",        "name",  "keep lock",
                                             "close",       "rename", "unlock", "sync folder", "unlock"};
        const std::vector<std::string> steps = files.Steps({expected.begin(), expected.end()});
        const bool isNamed = std::find(steps.begin(), steps.end(), "name") == steps.end();
        EXPECT_TRUE(isNamed || naming == TemporaryName::Own);
        if (naming == TemporaryName::Suffix) // which nothing takes for one that was left
        {
            expected.erase(expected.begin() + 8);
            expected.erase(expected.begin() + 5);
        }
        if (isNamed) // the temporary file had a name from its creation on
            expected.erase(expected.begin() + 4);
        EXPECT_EQ(steps, expected);
        EXPECT_EQ(folder.ReadFile("file"), "new");
    }
}

TEST(FileReplacement, FailsWithTheOldFileAndNothingElse)
{
    for (const TemporaryName naming : kBothNamings)
    {
        for (unsigned n = 1;; ++n)
        {
            const TempFolder folder;
            const std::wstring path = folder.WriteFile("file", "old");
            const auto descriptors = OpenDescriptors();
            FailingFileSystem files;
            files.FailAt(n, EIO);
            const int thrown = Thrown([&] { Replace(path, naming); });
            const std::string step = files.FailedStep();
            SCOPED_TRACE(step);
            EXPECT_EQ(folder.Names(), std::set<std::string>{"file"});
            EXPECT_EQ(OpenDescriptors(), descriptors);
            if (thrown == kNothingThrown)
            {
                EXPECT_GT(n, 7U);
                EXPECT_TRUE(step.empty() || step == "close") << "but that of the folder";
                if (step.empty())
                    break;
            }
            // The folder's flush is the one step behind the rename.
            const bool isNew = thrown == kNothingThrown || step == "sync folder";
            EXPECT_EQ(folder.ReadFile("file"), isNew ? "new" : "old");
        }
    }
}

TEST(FileReplacement, FailsCleanlyWithoutMemory)
{
    for (const TemporaryName naming : kBothNamings)
    {
        const TempFolder folder;
        const std::wstring path = folder.WidePath("file");
        const unsigned allocations = FailEachAllocation([&](FailingAllocations& failing) {
            folder.WriteFile("file", "old");
            const auto descriptors = OpenDescriptors();
            const bool isReplaced = failing.Run([&] { Replace(path, naming); });
            EXPECT_EQ(folder.ReadFile("file"), isReplaced ? "new" : "old");
            EXPECT_EQ(folder.Names(), std::set<std::string>{"file"});
            EXPECT_EQ(OpenDescriptors(), descriptors);
        });
        EXPECT_GT(allocations, 2U);
    }
}

TEST(FileReplacement, TouchesNoOtherFileUnlessItsNameIsDocumented)
{
    for (const TemporaryName naming : kBothNamings)
    {
        const TempFolder folder;
        const std::wstring path = folder.WriteFile("file", "old");
        folder.WriteFile("file.tmp", "the user's");
        {
            FileReplacement abandoned(path.c_str(), naming);
            abandoned.Begin().Write("new", 3);
        }
        EXPECT_EQ(folder.Exists("file.tmp"), naming == TemporaryName::Own);
        Replace(path, naming);
        EXPECT_EQ(folder.Exists("file.tmp"), naming == TemporaryName::Own);
        EXPECT_EQ(folder.ReadFile("file"), "new");
    }
}

TEST(FileReplacement, RemovesWhatEndedProcessesLeft)
{
    const TempFolder folder;
    const std::wstring path = folder.WriteFile("file", "old");
    const char* const kept[] = {".tevtools-a.tmp", ".tevtools-1-2", "tevtools-1-2.tmp", ".tevtools-.tmp"};
    for (const char* const name : kept)
        folder.WriteFile(name, "");
    folder.WriteFile(".tevtools-99-1.tmp", "left");
    folder.WriteFile(".tevtools-99-2.tmp", "being written");
    const int writer = open(folder.Path(".tevtools-99-2.tmp").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(writer, LOCK_EX), 0);
    ASSERT_EQ(mkfifo(folder.Path(".tevtools-99-3.tmp").c_str(), 0600), 0);
    {
        FileReplacement abandoned(path.c_str());
        abandoned.Begin();
    }
    EXPECT_TRUE(folder.Exists(".tevtools-99-1.tmp")) << "nothing is saved";
    Replace(path, TemporaryName::Own);
    std::set<std::string> expected(std::begin(kept), std::end(kept));
    expected.insert({"file", ".tevtools-99-2.tmp", ".tevtools-99-3.tmp"});
    EXPECT_EQ(folder.Names(), expected);
    close(writer);
    Replace(path, TemporaryName::Own);
    expected.erase(".tevtools-99-2.tmp");
    EXPECT_EQ(folder.Names(), expected);
}

TEST(FileReplacement, AnExtractionDoesNotTakeACompleteFileForALeftOne)
{
    const TempFolder folder;
    const std::wstring path = folder.WriteFile("file", "old");
    const auto replace = [&] {
        FailingFileSystem files;
        bool hasCleared = false;
        files.AtStep("rename", [&] {
            const auto extractedTo = platform::ContainedFolder::Open(folder.WidePath().c_str());
            extractedTo->ClearLeftovers();
            hasCleared = extractedTo->CreateFile("other") != nullptr;
        });
        const int thrown = Thrown([&] { Replace(path, TemporaryName::Own); });
        return hasCleared && thrown == kNothingThrown && folder.ReadFile("file") == "new";
    };
    EXPECT_TRUE(replace());
    folder.WriteFile("file", "old");
    EXPECT_TRUE(!CanForbidUnnamedFiles() ||
                ResultInChild([&] { return ForbidUnnamedFiles() && replace() ? 0 : 1; }) == 0);
}

TEST(FileReplacement, LeavesNoLockToAChildThatIsMadeMeanwhile)
{
    const TempFolder folder;
    const std::wstring path = folder.WriteFile("file", "old");
    std::optional<ChildProcess> child;
    {
        const FileReplacement replacement(path.c_str());
        child.emplace([] { return pause() == 0; });
    }
    EXPECT_EQ(Thrown([&] { Replace(path, TemporaryName::Own); }), kNothingThrown);
    child->Kill();
}

TEST(FileReplacement, WorksWhereFilesMustHaveNames)
{
    if (!CanForbidUnnamedFiles())
        GTEST_SKIP() << "the system does not permit to filter its calls";
    const TempFolder folder;
    const std::wstring path = folder.WriteFile("file", "old");
    const auto replace = [&](bool isKilled) {
        return ResultInChild([&] {
            static_cast<void>(ForbidUnnamedFiles());
            FileReplacement replacement(path.c_str());
            replacement.Begin().Write("new", 3);
            if (folder.Names().size() != 2 || isKilled)
                _exit(1);
            replacement.Commit();
            return 0;
        });
    };
    EXPECT_EQ(replace(true), 1);
    EXPECT_EQ(folder.ReadFile("file"), "old");
    EXPECT_EQ(folder.Names().size(), 2U) << "with the temporary file";
    Replace(path, TemporaryName::Own);
    EXPECT_EQ(folder.Names(), std::set<std::string>{"file"});
    folder.WriteFile("file", "old");
    EXPECT_EQ(replace(false), 0);
    EXPECT_EQ(folder.ReadFile("file"), "new");
    EXPECT_EQ(folder.Names(), std::set<std::string>{"file"});
}

TEST(FileReplacement, AThreadThatIsAskedToEndWaitsShortly)
{
    class Ending final : public ThreadStatus
    {
    public:
        bool IsAskedToEnd() const noexcept override { return true; }
    };
    const TempFolder folder;
    const std::wstring path = folder.WriteFile("file", "old");
    const int holder = open(folder.Path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(flock(holder, LOCK_EX), 0);
    std::thread([&] {
        const auto status = std::make_shared<Ending>();
        SetStatusOfThisThread(status.get());
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(Thrown([&] { Replace(path, TemporaryName::Own); }), fileSharingViolation);
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(9)) << "another one waits longer";
        EXPECT_EQ(folder.ReadFile("file"), "old");
        FailingFileSystem files;
        int attempts = 0;
        files.AtStep("lock folder", [&] { attempts += attempts == 2 ? 1 + flock(holder, LOCK_UN) : 1; });
        Replace(path, TemporaryName::Own);
        EXPECT_EQ(attempts, 3) << "the folder is soon free";
        EXPECT_EQ(folder.ReadFile("file"), "new");
        SetStatusOfThisThread(nullptr);
    }).join();
    close(holder);
}

TEST(FileReplacement, IsWhatWasWrittenOrNothing)
{
    const TempFolder folder;
    const CXTString<wchar_t> path = folder.WidePath("file").c_str();
    const auto thrown = [&](const std::function<void(CXFile&)>& write) {
        folder.WriteFile("file", "old");
        return Thrown([&] { XReplaceFile(path, write); });
    };
    const auto outcome = [&](int cause) { return std::pair(cause, folder.ReadFile("file")); };
    using Outcome = std::pair<int, std::string>;
    const auto write = [](CXFile& file) { file.Write("new", 3); };

    EXPECT_EQ(outcome(thrown(write)), Outcome(kNothingThrown, "new"));
    EXPECT_EQ(outcome(thrown([&](CXFile& file) { file.SetLength(2), file.Close(); })),
              Outcome(kNothingThrown, std::string(2, '\0')));
    EXPECT_EQ(outcome(thrown([&](CXFile& file) { write(file), file.Abort(); })), Outcome(fileInvalidFile, "old"));
    EXPECT_EQ(outcome(thrown([&](CXFile& file) { write(file), CXInvalidArgException::Throw(); })),
              Outcome(kInvalidArgument, "old"));
    EXPECT_EQ(outcome(thrown({})), Outcome(kInvalidArgument, "old"));
    EXPECT_EQ(outcome(thrown([&](CXFile& file) {
                  const FileReplacement other(path); // no lock is held
                  write(file);
              })),
              Outcome(kNothingThrown, "new"));
    for (const bool isFull : {true, false})
    {
        FailingFileSystem files;
        files.LimitSpace(isFull ? 1000 : 7000);
        const int cause = thrown([](CXFile& file) {
            CXArchive archive(&file, xArchiveStore); // not closed, so that it swallows what fails
            archive << CXTString<char>('x', 2000);
        });
        EXPECT_EQ(cause, isFull ? int{fileDiskFull} : kNothingThrown);
        EXPECT_EQ(folder.ReadFile("file") == "old", isFull);
    }
    EXPECT_EQ(folder.Names(), std::set<std::string>{"file"});
    EXPECT_EQ(Thrown([&] { XReplaceFile(folder.WidePath("none/file").c_str(), write); }), fileNotFound);
}

TEST(FileReplacement, KeepsPermissionsAndLinks)
{
    for (const TemporaryName naming : kBothNamings)
    {
        const TempFolder folder;
        folder.WriteFile("inner/file", "old");
        ASSERT_EQ(chmod(folder.Path("inner/file").c_str(), 04640), 0);
        std::filesystem::create_symlink("inner/file", folder.Path("link"));
        Replace(folder.WidePath("link"), naming);
        EXPECT_TRUE(std::filesystem::is_symlink(folder.Path("link")));
        struct stat status = {};
        ASSERT_EQ(stat(folder.Path("inner/file").c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777U, 04640U);
        EXPECT_EQ(folder.ReadFile("inner/file"), "new");
        Replace(folder.WidePath("fresh"), naming);
        const mode_t mask = umask(0);
        umask(mask);
        ASSERT_EQ(stat(folder.Path("fresh").c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777U, 0666U & ~mask);
    }
}

TEST(RegularFile, IsNeverAPipe)
{
    const TempFolder folder;
    const std::wstring path = folder.WidePath("pipe");
    ASSERT_EQ(mkfifo(folder.Path("pipe").c_str(), 0600), 0);
    CXFileException error;
    RegularFile file;
    EXPECT_FALSE(file.Open(path.c_str(), error));
    EXPECT_EQ(error.GetCause(), fileInvalidFile);
    EXPECT_FALSE(file.Open(folder.WidePath().c_str(), error));
    EXPECT_EQ(error.GetCause(), fileAccessDenied);
    EXPECT_FALSE(file.Open(folder.WidePath("none").c_str(), error));
    EXPECT_EQ(error.GetCause(), fileNotFound);
    EXPECT_EQ(Thrown([&] { Replace(path, TemporaryName::Own); }), fileGeneric);
    folder.WriteFile("file", "12345");
    ASSERT_TRUE(file.Open(folder.WidePath("file").c_str(), error));
    char bytes[8];
    EXPECT_EQ(file.Read(bytes, sizeof bytes), 5U);

    // A pipe that the user names is one.
    std::thread writer([&] {
        CXFile sink(path.c_str(), CXFile::modeWrite | CXFile::shareDenyNone);
        sink.Write("text", 4);
    });
    CXFile source(path.c_str(), CXFile::modeRead | CXFile::shareDenyNone);
    EXPECT_EQ(source.Read(bytes, sizeof bytes), 4U);
    writer.join();
}
} // namespace
