#include "core/CXFile.h"

#include "core/CXFileException.h"
#include "core/CXMemFile.h"
#include "tests/support/FailingFileSystem.h"
#include "tests/support/FileFailure.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{
using tev::test::FailingFileSystem;
using tev::test::kNothingThrown;
using tev::test::TempFolder;
using tev::test::Thrown;

constexpr unsigned kShared = CXFile::shareDenyNone | CXFile::modeNoInherit;
constexpr unsigned __int64 kFailed = ~0ull;
constexpr int kOpened = -1;
constexpr int kDenied = fileAccessDenied;
constexpr int kNoFile = fileNotFound; // what the documented table makes of an invalid handle

/// The cause with which a file cannot be opened, kOpened when it can.
int OpenCause(CXFile& file, const std::wstring& path, unsigned flags)
{
    CXFileException error;
    const bool opened = file.Open(path.c_str(), flags, &error);
    EXPECT_TRUE(opened || error.GetFileName() == path.c_str());
    return opened ? kOpened : static_cast<int>(error.GetCause());
}

int OpenCause(const std::wstring& path, unsigned flags)
{
    CXFile file(false);
    return OpenCause(file, path, flags);
}

std::string ReadAll(CXFile& file)
{
    std::string bytes(1000, '\0');
    bytes.resize(file.Read(bytes.data(), static_cast<unsigned>(bytes.size())));
    return bytes;
}

/// Runs code in a child process, which ends with the answer as its exit code.
class Child
{
public:
    template <class Code>
    explicit Child(Code&& code) : m_process(fork())
    {
        if (m_process == 0)
            _exit(code());
    }
    ~Child() { Wait(); }

    void Kill() const { kill(m_process, SIGKILL); }
    int Wait()
    {
        int status = -1;
        if (m_process > 0)
            waitpid(m_process, &status, 0);
        m_process = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t m_process;
};

class Pipe
{
public:
    Pipe() { EXPECT_EQ(pipe(m_ends.data()), 0); }
    ~Pipe()
    {
        for (const int end : m_ends)
            close(end);
    }
    int In() const { return m_ends[1]; }
    int Out() const { return m_ends[0]; }

private:
    std::array<int, 2> m_ends{};
};

// Opening

TEST(CXFile, OpensAsTheFlagsSay)
{
    const TempFolder folder;
    const struct
    {
        unsigned flags;
        bool exists;
        int cause;
        const char* contentsAfter; ///< null: there is no file
        bool reads;
        bool writes;
    } cases[] = {
        {0x0, true, kOpened, "old", true, false},
        {0x3, true, kOpened, "old", true, false},
        {0x1, true, kOpened, "old", false, true},
        {0x2, true, kOpened, "old", true, true},
        {0x2002, true, kOpened, "old", true, true},
        {0x1000, true, kOpened, "", true, false},
        {0x1001, true, kOpened, "", false, true},
        {0x1002, true, kOpened, "", true, true},
        {0x3000, true, kOpened, "old", true, false},
        {0x3001, true, kOpened, "old", false, true},
        {0xF082, true, kOpened, "old", true, true},
        {0x0, false, fileNotFound, nullptr, false, false},
        {0x2001, false, fileNotFound, nullptr, false, false},
        {0x1000, false, kOpened, "", true, false},
        {0x3001, false, kOpened, "", false, true},
        {0x1082, false, kOpened, "", true, true},
    };
    for (const auto& c : cases)
    {
        char text[40];
        std::snprintf(text, sizeof(text), "flags %x, exists %d", c.flags, c.exists);
        SCOPED_TRACE(text);
        std::filesystem::remove(folder.Path("file"));
        if (c.exists)
            folder.WriteFile("file", "old");
        CXFile file;
        ASSERT_EQ(OpenCause(file, folder.WidePath("file"), c.flags), c.cause);
        ASSERT_EQ(folder.Exists("file"), c.contentsAfter != nullptr);
        if (c.contentsAfter == nullptr)
            continue;
        EXPECT_EQ(folder.ReadFile("file"), c.contentsAfter);
        char byte = 'x';
        EXPECT_EQ(Thrown([&] { file.Read(&byte, 1); }), c.reads ? kNothingThrown : kDenied);
        EXPECT_EQ(Thrown([&] { file.Write(&byte, 1); }), c.writes ? kNothingThrown : kDenied);
        EXPECT_EQ(Thrown([&] { file.SetLength(5); }), c.writes ? kNothingThrown : kDenied);
    }
}

TEST(CXFile, SaysWhyItCannotOpen)
{
    const TempFolder folder;
    folder.WriteFile("file", "x");
    const std::wstring base = folder.WidePath();
    const struct
    {
        std::wstring path;
        unsigned flags;
        int cause;
    } cases[] = {
        {L"", CXFile::modeRead, fileBadPath},
        {base + L"/none/file", CXFile::modeRead, fileNotFound},
        {base + L"/file/below", CXFile::modeRead, fileBadPath},
        {base + static_cast<wchar_t>(0xD800), CXFile::modeRead, fileBadPath},
        {base, CXFile::modeRead, fileAccessDenied},
        {base, CXFile::modeReadWrite, fileAccessDenied},
        {base, CXFile::modeWrite | CXFile::modeCreate, fileAccessDenied},
    };
    for (const auto& c : cases)
        EXPECT_EQ(OpenCause(c.path, c.flags), c.cause) << "case " << (&c - cases);

    CXFile throwing(true);
    CXFileException error;
    EXPECT_FALSE(throwing.Open(nullptr, CXFile::modeRead, &error));
    EXPECT_EQ(error.GetCause(), fileBadPath);
    EXPECT_FALSE(throwing.Open((base + L"/none").c_str(), CXFile::modeRead));
    EXPECT_EQ(throwing.GetFileName(), L"none");
    EXPECT_EQ(Thrown([&] { CXFile file((base + L"/none").c_str(), CXFile::modeRead); }), fileNotFound);
    EXPECT_EQ(Thrown([&] { CXFile file(L"", CXFile::modeRead); }), fileBadPath);
}

TEST(CXFile, TakesPathsOfLessThan260Characters)
{
    const TempFolder folder;
    folder.WriteFile("f", "x");
    const auto pathOfLength = [&folder](std::size_t length) {
        std::wstring path = folder.WidePath() + L"/";
        path += path.size() % 2 == length % 2 ? L"/" : L"";
        while (path.size() < length - 1)
            path += L"./";
        return path + L"f";
    };
    ASSERT_EQ(pathOfLength(259).size(), 259u);
    ASSERT_EQ(pathOfLength(260).size(), 260u);
    EXPECT_EQ(OpenCause(pathOfLength(259), CXFile::modeRead), kOpened);
    EXPECT_EQ(OpenCause(pathOfLength(260), CXFile::modeRead), fileBadPath);
}

TEST(CXFile, FindsEveryNameWithEitherSeparator)
{
    const TempFolder folder;
    folder.WriteFile("sub/\xC3\xA9\xE6\x97\xA5\xF0\x9F\x98\x80.txt", "accents");
    const int descriptor = open((folder.Path("sub").string() + "/\xE9t\xE9").c_str(), O_CREAT | O_WRONLY, 0600);
    ASSERT_EQ(write(descriptor, "latin", 5), 5);
    close(descriptor);

    std::wstring accents = L"\u00E9\u65E5";
    accents += sizeof(wchar_t) == 2 ? L"\xD83D\xDE00" : L"\U0001F600";
    const std::wstring latin = {0xDCE9, 't', 0xDCE9};
    const struct
    {
        std::wstring path;
        std::wstring name;
        const char* contents;
    } cases[] = {
        {folder.WidePath() + L"/sub/" + accents + L".txt", accents + L".txt", "accents"},
        {folder.WidePath() + L"\\sub\\" + accents + L".txt", accents + L".txt", "accents"},
        {folder.WidePath() + L"/sub\\" + latin, latin, "latin"},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.contents);
        CXFile file;
        ASSERT_EQ(OpenCause(file, c.path, CXFile::modeRead), kOpened);
        EXPECT_EQ(ReadAll(file), c.contents);
        EXPECT_TRUE(file.GetFilePath() == c.path.c_str());
        EXPECT_TRUE(file.GetFileName() == c.name.c_str());
    }
    CXFile file;
    for (const auto& [path, name] : {std::pair(L"plain", L"plain"), std::pair(L"a\\b/", L""), std::pair(L"", L"")})
    {
        file.SetFilePath(path);
        EXPECT_TRUE(file.GetFileName() == name);
    }
}

TEST(CXFile, IsRefusedWithoutPermission)
{
    const TempFolder folder;
    folder.WriteFile("file", "x");
    chmod(folder.Path("file").c_str(), 0);
    const std::wstring path = folder.WidePath("file");
    Child child([&path] {
        const bool isOrdinaryUser = geteuid() != 0 || setuid(65534) == 0;
        return isOrdinaryUser ? OpenCause(path, CXFile::modeRead) : 99;
    });
    EXPECT_EQ(child.Wait(), fileAccessDenied);
}

TEST(CXFile, OpensAgainAfterClosingTheOldFile)
{
    const TempFolder folder;
    const std::wstring first = folder.WriteFile("first", "1");
    const std::wstring second = folder.WriteFile("second", "22");
    CXFile file(first.c_str(), CXFile::modeReadWrite | CXFile::shareExclusive);
    EXPECT_EQ(OpenCause(file, second, kShared), kOpened);
    EXPECT_EQ(ReadAll(file), "22");
    EXPECT_EQ(OpenCause(first, CXFile::modeReadWrite | CXFile::shareExclusive), kOpened);
    EXPECT_EQ(OpenCause(file, folder.WidePath("none"), kShared), fileNotFound);
    EXPECT_EQ(file.GetLength(), kFailed);
    EXPECT_EQ(OpenCause(second, CXFile::modeReadWrite | CXFile::shareExclusive), kOpened);
}

TEST(CXFile, HandsItsHandleDownOnlyWhenAsked)
{
    const TempFolder folder;
    const std::wstring path = folder.WriteFile("handed-down", "x");
    for (const bool inherits : {true, false})
    {
        const CXFile file(path.c_str(), CXFile::shareDenyNone | (inherits ? 0u : CXFile::modeNoInherit));
        FILE* const child = popen("ls -l /proc/self/fd", "r");
        ASSERT_NE(child, nullptr);
        std::string listed(10000, '\0');
        listed.resize(fread(listed.data(), 1, listed.size(), child));
        pclose(child);
        EXPECT_NE(listed.find("pipe:"), std::string::npos);
        EXPECT_EQ(listed.find("handed-down") != std::string::npos, inherits);
    }
}

TEST(CXFile, LeavesAWrappedHandleToItsOwner)
{
    const Pipe pipe;
    {
        CXFile in(CXFile::HandleFromDescriptor(pipe.In()), true);
        in.Write("hello", 5);
        EXPECT_EQ(in.Seek(0, CXFile::begin), kFailed);
        EXPECT_EQ(in.GetLength(), kFailed);
        in.Flush();
    }
    ASSERT_EQ(write(pipe.In(), "!", 1), 1);

    CXFile out(CXFile::HandleFromDescriptor(dup(pipe.Out())), true);
    char bytes[10] = {};
    EXPECT_EQ(out.Read(bytes, 6), 6u);
    EXPECT_STREQ(bytes, "hello!");
    out.Close();
    EXPECT_EQ(out.Read(bytes, 1), 0u);
    EXPECT_EQ(CXFile::HandleFromDescriptor(-1), nullptr);
}

// Sharing

struct Opener
{
    unsigned flags;
    bool reads;
    bool writes;
    bool letsRead;
    bool letsWrite;
};

std::vector<Opener> AllOpeners()
{
    std::vector<Opener> openers;
    for (const unsigned access : {0x0u, 0x1u, 0x2u})
    {
        for (const unsigned share : {0x00u, 0x10u, 0x20u, 0x30u, 0x40u})
        {
            openers.push_back({access | share | CXFile::modeNoInherit, access != 1, access != 0,
                               share == 0x20 || share == 0x40, share == 0x30 || share == 0x40});
        }
    }
    return openers;
}

bool Permits(const Opener& a, const Opener& b)
{
    return (a.letsRead || !b.reads) && (a.letsWrite || !b.writes);
}

/// One character for each of the openers: whether it can open the file now.
std::string WhoCanOpen(const std::wstring& path)
{
    std::string answers;
    for (const Opener& opener : AllOpeners())
    {
        const int cause = OpenCause(path, opener.flags);
        answers += cause == kOpened ? 'y' : cause == fileSharingViolation ? 'n' : '?';
    }
    return answers;
}

TEST(CXFileSharing, FollowsTheRuleInOneProcessAndBetweenTwo)
{
    const TempFolder folder;
    const std::wstring path = folder.WriteFile("file", "x");
    const Pipe questions;
    const Pipe replies;
    Child other([&] {
        char question = 0;
        for (std::size_t i = 0; i < AllOpeners().size() && read(questions.Out(), &question, 1) == 1; ++i)
        {
            const std::string answers = WhoCanOpen(path);
            if (write(replies.In(), answers.data(), answers.size()) < 0)
                return 1;
        }
        return 0;
    });
    for (const Opener& first : AllOpeners())
    {
        SCOPED_TRACE(first.flags);
        std::string expected;
        for (const Opener& second : AllOpeners())
            expected += Permits(first, second) && Permits(second, first) ? 'y' : 'n';
        const CXFile file(path.c_str(), first.flags);
        EXPECT_EQ(WhoCanOpen(path), expected);
        ASSERT_EQ(write(questions.In(), "?", 1), 1);
        std::string answers(expected.size(), '\0');
        EXPECT_EQ(read(replies.Out(), answers.data(), answers.size()), static_cast<ssize_t>(answers.size()));
        EXPECT_EQ(answers, expected);
    }
    EXPECT_EQ(other.Wait(), 0);
    EXPECT_EQ(WhoCanOpen(path), std::string(AllOpeners().size(), 'y'));
}

TEST(CXFileSharing, AsksEveryOpenerAndFollowsTheFile)
{
    const TempFolder folder;
    const std::wstring path = folder.WriteFile("file", "contents");
    CXFile denier(path.c_str(), CXFile::modeRead | CXFile::shareDenyWrite);
    CXFile reader(path.c_str(), CXFile::modeRead | CXFile::shareDenyNone);
    EXPECT_EQ(OpenCause(path, CXFile::modeWrite | CXFile::shareDenyNone), fileSharingViolation);
    // The contents survive a refused open that would truncate, for reading too.
    EXPECT_EQ(OpenCause(path, CXFile::modeWrite | CXFile::modeCreate | CXFile::shareDenyNone), fileSharingViolation);
    EXPECT_EQ(OpenCause(path, CXFile::modeRead | CXFile::modeCreate | CXFile::shareDenyNone), fileSharingViolation);
    EXPECT_EQ(folder.ReadFile("file"), "contents");
    // A file that was moved away takes its openers with it.
    std::filesystem::rename(folder.Path("file"), folder.Path("moved"));
    EXPECT_EQ(OpenCause(folder.WidePath("moved"), CXFile::modeWrite | CXFile::shareDenyNone), fileSharingViolation);
    EXPECT_EQ(OpenCause(path, CXFile::modeWrite | CXFile::modeCreate), kOpened);

    denier.Close();
    EXPECT_EQ(OpenCause(folder.WidePath("moved"), CXFile::modeWrite | CXFile::shareDenyNone), kOpened);
    EXPECT_EQ(OpenCause(folder.WidePath("moved"), CXFile::modeWrite | CXFile::shareExclusive), fileSharingViolation);
}

TEST(CXFileSharing, EndsWithAProcessThatIsKilled)
{
    const TempFolder folder;
    const std::wstring path = folder.WriteFile("file", "x");
    const Pipe ready;
    Child child([&] {
        const CXFile file(path.c_str(), CXFile::modeReadWrite | CXFile::shareExclusive);
        if (write(ready.In(), "r", 1) == 1)
            pause();
        return 0;
    });
    char byte = 0;
    ASSERT_EQ(read(ready.Out(), &byte, 1), 1);
    EXPECT_EQ(OpenCause(path, kShared), fileSharingViolation);
    child.Kill();
    child.Wait();
    EXPECT_EQ(OpenCause(path, CXFile::modeReadWrite | CXFile::shareExclusive), kOpened);
}

TEST(CXFileSharing, LetsOneInWhenManyComeAtOnce)
{
    const TempFolder folder;
    const std::wstring path = folder.WriteFile("file", "x");
    std::atomic<int> holders{0};
    std::atomic<int> successes{0};
    std::atomic<bool> overlapped{false};
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    const auto openOften = [&](unsigned flags) {
        for (int left = 100; left > 0 && std::chrono::steady_clock::now() < deadline;)
        {
            CXFile file(false);
            if (!file.Open(path.c_str(), flags))
                continue;
            overlapped = overlapped || ++holders != 1;
            std::this_thread::yield();
            --left;
            ++successes;
            --holders;
        }
    };
    std::vector<std::thread> threads;
    for (const unsigned access : {CXFile::modeWrite, CXFile::modeReadWrite, CXFile::modeRead})
        threads.emplace_back(openOften, access | CXFile::shareExclusive);
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_FALSE(overlapped);
    EXPECT_EQ(successes, 300); // and everybody gets its turn
}

// Reading, writing, positions

TEST(CXFile, ReadsAndWritesAtItsPosition)
{
    const TempFolder folder;
    CXFile file(folder.WidePath("file").c_str(), CXFile::modeReadWrite | CXFile::modeCreate | kShared);
    char bytes[20] = {};
    EXPECT_EQ(file.Read(bytes, 10), 0u);
    file.Write("0123456789", 10);
    file.Write(nullptr, 0);
    EXPECT_EQ(file.GetPosition(), 10u);
    EXPECT_EQ(file.Seek(-4, CXFile::end), 6u);
    EXPECT_EQ(file.Read(bytes, 3), 3u);
    EXPECT_STREQ(bytes, "678");
    EXPECT_EQ(file.Read(nullptr, 1), 0u);
    EXPECT_EQ(file.Read(bytes, 0), 0u);
    EXPECT_EQ(file.Seek(-8, CXFile::current), 1u);
    std::vector<char> heap(20); // addresses that are that far from the end of all addresses
    EXPECT_EQ(file.Read(heap.data(), 0xFFFFFFFF), 9u);
    EXPECT_STREQ(heap.data(), "123456789");
    EXPECT_EQ(file.Read(bytes, 1), 0u);

    EXPECT_EQ(file.Seek(-1, CXFile::begin), kFailed);
    EXPECT_EQ(file.Seek(0, static_cast<CXFile::SeekPosition>(3)), kFailed);
    EXPECT_EQ(file.GetPosition(), 10u);
    file.SeekToBegin();
    EXPECT_EQ(file.GetPosition(), 0u);
    EXPECT_EQ(file.SeekToEnd(), 10u);
    EXPECT_EQ(file.Seek(12, CXFile::begin), 12u);
    file.Write("!", 1);
    file.Flush();
    EXPECT_EQ(folder.ReadFile("file"), std::string("0123456789\0\0!", 13));
    EXPECT_EQ(file.GetLength(), 13u);

    EXPECT_TRUE(file.SetLength(2));
    EXPECT_EQ(file.GetPosition(), 2u);
    EXPECT_TRUE(file.SetLength(4));
    EXPECT_EQ(file.GetPosition(), 4u);
    EXPECT_EQ(folder.ReadFile("file"), std::string("01\0\0", 4));
    EXPECT_TRUE(file.SetLength(5000000000));
    EXPECT_EQ(file.GetLength(), 5000000000u);
    EXPECT_NE(Thrown([&file] { file.SetLength(~0ull); }), kNothingThrown);
    file.Close();
    EXPECT_EQ(file.GetFileName(), L"file");
}

TEST(CXFile, MeetsAFullDevice)
{
    CXFile full(L"/dev/full", CXFile::modeReadWrite | CXFile::shareExclusive);
    CXFile quiet(false);
    ASSERT_TRUE(quiet.Open(L"/dev/full", CXFile::modeWrite | CXFile::shareExclusive));
    EXPECT_EQ(Thrown([&] { full.Write("x", 1); }), fileDiskFull);
    EXPECT_EQ(Thrown([&] { quiet.Write("x", 1); }), kNothingThrown);
}

TEST(CXFile, AnswersWithoutAFile)
{
    for (const bool throws : {true, false})
    {
        CXFile file(throws);
        char byte = 0;
        EXPECT_EQ(file.Read(&byte, 1), 0u);
        EXPECT_EQ(file.Seek(0, CXFile::begin), kFailed);
        EXPECT_EQ(file.GetPosition(), kFailed);
        EXPECT_EQ(file.GetLength(), kFailed);
        EXPECT_EQ(Thrown([&] { file.Write(&byte, 1); }), throws ? kNoFile : kNothingThrown);
        EXPECT_EQ(Thrown([&] { EXPECT_FALSE(file.SetLength(1)); }), throws ? kNoFile : kNothingThrown);
        file.Flush();
        file.Close();
        file.Abort();
    }
}

TEST(CXFile, PassesOnWhatTheSystemSays)
{
    const TempFolder folder;
    const std::wstring path = folder.WriteFile("file", "0123456789");
    const struct
    {
        const char* name;
        int error;
        int cause;
        void (*run)(CXFile&);
    } cases[] = {
        {"read", EIO, fileHardIO, [](CXFile& file) { EXPECT_EQ(ReadAll(file), ""); }},
        {"write", EIO, fileHardIO, [](CXFile& file) { file.Write("x", 1); }},
        {"write, unknown to the map", ENOTTY, fileGeneric, [](CXFile& file) { file.Write("x", 1); }},
        {"write, unnamed", 0, fileGeneric, [](CXFile& file) { file.Write("x", 1); }},
        {"set length", ENOSPC, fileDiskFull, [](CXFile& file) { EXPECT_FALSE(file.SetLength(100)); }},
        {"set length, unnamed", 0, fileDiskFull, [](CXFile& file) { EXPECT_FALSE(file.SetLength(100)); }},
        {"flush", EDQUOT, fileDiskFull, [](CXFile& file) { file.Flush(); }},
        {"close", EIO, fileHardIO, [](CXFile& file) { file.Close(); }},
        {"abort", EIO, kNothingThrown, [](CXFile& file) { file.Abort(); }},
        {"seek", EINVAL, kNothingThrown, [](CXFile& file) { EXPECT_EQ(file.Seek(0, CXFile::begin), kFailed); }},
    };
    for (const auto& c : cases)
    {
        for (const bool throws : {true, false})
        {
            SCOPED_TRACE(c.name);
            FailingFileSystem files;
            CXFile file(throws);
            ASSERT_TRUE(file.Open(path.c_str(), CXFile::modeReadWrite | CXFile::shareExclusive));
            files.FailAt(1, c.error);
            EXPECT_EQ(Thrown([&] { c.run(file); }), throws ? c.cause : kNothingThrown);
        }
    }
    FailingFileSystem files;
    files.FailAt(1, EMFILE);
    EXPECT_EQ(OpenCause(path, kShared), fileTooManyOpenFiles);
    EXPECT_EQ(folder.ReadFile("file"), "0123456789");
}

TEST(CXFile, CallsAPartialWriteAFullDisk)
{
    const TempFolder folder;
    FailingFileSystem files;
    CXFile file(folder.WidePath("file").c_str(), CXFile::modeReadWrite | CXFile::modeCreate);
    files.LimitSpace(7);
    EXPECT_EQ(Thrown([&] { file.Write("0123456789", 10); }), fileDiskFull);
    EXPECT_EQ(folder.ReadFile("file"), "0123456");
    EXPECT_EQ(file.GetPosition(), 7u);
    files.LimitSpace(100);
    files.LimitTransfer(2);
    EXPECT_EQ(Thrown([&] { file.Write("789", 3); }), fileDiskFull);
    file.SeekToBegin();
    EXPECT_EQ(ReadAll(file), "01");
}

TEST(CXFile, HasAClassRecordAndLendsNoMemory)
{
    class Lending : public CXFile
    {
    public:
        using CXFile::BufferCommand;
    };
    Lending file;
    unsigned char* start = nullptr;
    unsigned char* stop = nullptr;
    for (const unsigned command : {CXFile::bufferRead, CXFile::bufferWrite, CXFile::bufferCommit, CXFile::bufferCheck})
        EXPECT_EQ(file.BufferCommand(command, 10, &start, &stop), 0u);

    const CXMemFile memory;
    EXPECT_TRUE(memory.IsKindOf(&CXFile::classCreatorCXFile));
    EXPECT_FALSE(file.IsKindOf(&CXMemFile::classCreatorCXMemFile));
    EXPECT_STREQ(memory.GetRuntimeClassDescriptor()->m_name, "CXMemFile");
    EXPECT_FALSE(CXFile::classCreatorCXFile.IsSerializable());
}
} // namespace
