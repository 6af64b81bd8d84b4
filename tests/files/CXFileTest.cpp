#include "files/CXFile.h"

#include "files/CStdioFileEx.h"
#include "files/CXMemFile.h"
#include "services/CPathString.h"
#include "tests/support/FailingFileSystem.h"
#include "tests/support/FileFailure.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/OnThreads.h"
#include "tests/support/Pipe.h"
#include "tests/support/TempFolder.h"

namespace
{
using namespace tev::test;

constexpr unsigned kShared = CXFile::shareDenyNone | CXFile::modeNoInherit;
constexpr unsigned kAlone = CXFile::modeReadWrite | CXFile::shareExclusive;
constexpr int kOpened = -1;
constexpr int kDenied = fileAccessDenied;
constexpr int kNotFound = fileNotFound;

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

// By the forms that the overrides of derived classes must not hide.
template <class File>
void ExpectOpenedByPath(const std::filesystem::path& path)
{
    const std::wstring longer = CPathString(path).GetConstBuffer() + std::wstring(L"+");
    const std::wstring_view view = std::wstring_view(longer).substr(0, longer.size() - 1);
    File opened(path, kShared);
    EXPECT_EQ(ReadAll(opened), "text");
    EXPECT_TRUE(opened.Open(path, kShared));
    EXPECT_EQ(std::filesystem::path(CPathString(opened.GetFilePath())), path);
    EXPECT_TRUE(opened.Open(view, kShared));
    EXPECT_EQ(ReadAll(opened), "text");
    CXFileException error;
    EXPECT_FALSE(opened.Open(path / "none", kShared, &error));
    EXPECT_EQ(std::filesystem::path(CPathString(error.GetFileName())), path / "none");
}

// Opening

TEST(CXFile, PathsOfTheStandardLibraryOpenFiles)
{
    const TempFolder folder;
    const std::filesystem::path path = folder.Path("") / "caf\xC3\xA9 \xFF";
    std::ofstream(path) << "text";
    ExpectOpenedByPath<CXFile>(path);
    ExpectOpenedByPath<CXStdioFile>(path);
    ExpectOpenedByPath<CStdioFileEx>(path);
    CXMemFile memory;
    CXFileException error;
    EXPECT_FALSE(memory.Open(path, kShared, &error));
    EXPECT_EQ(error.GetCause(), fileInvalidFile);
}

TEST(CXFile, OpensAsTheFlagsSay)
{
    const TempFolder folder;
    const struct
    {
        unsigned flags;
        bool exists;
        const char* contents; ///< afterwards; null: it is not found
        const char* access;
    } cases[] = {{0x0, true, "old", "r"},      {0x3, true, "old", "r"},     {0x1, true, "old", "w"},
                 {0x2, true, "old", "rw"},     {0x2002, true, "old", "rw"}, {0x1000, true, "", "r"},
                 {0x1001, true, "", "w"},      {0x1002, true, "", "rw"},    {0x3000, true, "old", "r"},
                 {0x3001, true, "old", "w"},   {0xF082, true, "old", "rw"}, {0x0, false, nullptr, ""},
                 {0x2001, false, nullptr, ""}, {0x1000, false, "", "r"},    {0x3001, false, "", "w"},
                 {0x1082, false, "", "rw"}};
    for (const auto& c : cases)
    {
        SCOPED_TRACE(testing::Message() << std::hex << "flags " << c.flags << ", exists " << c.exists);
        std::filesystem::remove(folder.Path("file"));
        if (c.exists)
            folder.WriteFile("file", "old");
        CXFile file;
        ASSERT_EQ(OpenCause(file, folder.WidePath("file"), c.flags), c.contents ? kOpened : kNotFound);
        ASSERT_EQ(folder.Exists("file"), c.contents != nullptr);
        if (c.contents == nullptr)
            continue;
        EXPECT_EQ(folder.ReadFile("file"), c.contents);
        const std::string access = c.access;
        const int writing = access.back() == 'w' ? kNothingThrown : kDenied;
        char byte = 'x';
        EXPECT_EQ(Thrown([&] { file.Read(&byte, 1); }), access[0] == 'r' ? kNothingThrown : kDenied);
        EXPECT_EQ(Thrown([&] { file.Write(&byte, 1); }), writing);
        EXPECT_EQ(Thrown([&] { file.SetLength(5); }), writing);
    }
}

TEST(CXFile, SaysWhyItCannotOpen)
{
    const TempFolder folder;
    folder.WriteFile("file", "x");
    const std::wstring base = folder.WidePath();
    const auto pathOfLength = [&base](std::size_t length) { // to the same file
        std::wstring path = base + (base.size() % 2 == length % 2 ? L"//" : L"/");
        while (path.size() + 4 < length)
            path += L"./";
        return path + L"file";
    };
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
        {L"/" + std::wstring(257, L'x'), CXFile::modeRead, fileBadPath},
        {pathOfLength(259), CXFile::modeRead, kOpened},
        {pathOfLength(260), CXFile::modeRead, fileBadPath},
        {base, CXFile::modeRead, fileAccessDenied},
        {base, CXFile::modeReadWrite, fileAccessDenied},
        {base, CXFile::modeWrite | CXFile::modeCreate, fileAccessDenied},
    };
    for (const auto& c : cases)
    {
        EXPECT_EQ(OpenCause(c.path, c.flags), c.cause) << "case " << (&c - cases);
        const int thrown = c.cause == kOpened ? kNothingThrown : c.cause;
        EXPECT_EQ(Thrown([&c] { CXFile file(c.path.c_str(), c.flags); }), thrown) << "case " << (&c - cases);
    }
    EXPECT_EQ(pathOfLength(260).size(), 260u);

    CXFile throwing(true);
    CXFileException error;
    EXPECT_FALSE(throwing.Open(nullptr, CXFile::modeRead, &error));
    EXPECT_EQ(error.GetCause(), fileBadPath);
    EXPECT_FALSE(throwing.Open((base + L"/none").c_str(), CXFile::modeRead));
    EXPECT_EQ(throwing.GetFileName(), L"none");
}

TEST(CXFile, FindsEveryNameWithEitherSeparator)
{
    const TempFolder folder;
    folder.WriteFile("sub/\xC3\xA9\xE6\x97\xA5\xF0\x9F\x98\x80.txt", "accents");
    std::ofstream(folder.Path("sub").string() + "/\xE9t\xE9") << "latin";
    const std::wstring accents = L"\u00E9\u65E5\U0001F600.txt";
    const std::wstring latin = {0xDCE9, 't', 0xDCE9};
    for (const std::wstring& name : {L"/" + accents, L"\\" + accents, L"\\" + latin})
    {
        CXFile file;
        ASSERT_EQ(OpenCause(file, folder.WidePath() + name[0] + L"sub" + name, CXFile::modeRead), kOpened);
        EXPECT_EQ(ReadAll(file), name.substr(1) == latin ? "latin" : "accents");
        EXPECT_TRUE(file.GetFilePath() == (folder.WidePath() + name[0] + L"sub" + name).c_str());
        EXPECT_TRUE(file.GetFileName() == name.c_str() + 1);
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
    const std::wstring path = folder.WriteFile("file", "x");
    chmod(folder.Path("file").c_str(), 0);
    const uid_t user = geteuid();
    ASSERT_TRUE(user != 0 || seteuid(65534) == 0);
    EXPECT_EQ(OpenCause(path, CXFile::modeRead), fileAccessDenied);
    ASSERT_EQ(seteuid(user), 0);
}

TEST(CXFile, OpensAgainAfterClosingTheOldFile)
{
    const TempFolder folder;
    const std::wstring first = folder.WriteFile("first", "1");
    const std::wstring second = folder.WriteFile("second", "22");
    CXFile file(first.c_str(), kAlone);
    EXPECT_EQ(OpenCause(file, second, kShared), kOpened);
    EXPECT_EQ(ReadAll(file), "22");
    EXPECT_EQ(OpenCause(first, kAlone), kOpened);
    EXPECT_EQ(OpenCause(file, folder.WidePath("none"), kShared), fileNotFound);
    EXPECT_EQ(file.GetLength(), kFailed);
    EXPECT_EQ(OpenCause(second, kAlone), kOpened);
}

TEST(CXFile, HandsItsHandleDownOnlyWhenAsked)
{
    const TempFolder folder;
    const std::wstring path = folder.WriteFile("handed-down", "x");
    for (const bool inherits : {true, false})
    {
        const CXFile file(path.c_str(), CXFile::shareDenyNone | (inherits ? 0u : CXFile::modeNoInherit));
        const int status = std::system("ls -l /proc/self/fd | grep -q handed-down");
        EXPECT_EQ(WEXITSTATUS(status), inherits ? 0 : 1);
    }
}

TEST(CXFile, LeavesAWrappedHandleToItsOwner)
{
    const Pipe pipe;
    {
        CXFile in(CXFile::HandleFromDescriptor(pipe.WriteEnd()), true);
        in.Write("hello", 5);
        EXPECT_EQ(in.Seek(0, CXFile::begin), kFailed);
        EXPECT_EQ(in.GetLength(), kFailed);
        in.Flush();
    }
    ASSERT_EQ(write(pipe.WriteEnd(), "!", 1), 1);

    CXFile out(CXFile::HandleFromDescriptor(dup(pipe.ReadEnd())), true);
    char bytes[10] = {};
    EXPECT_EQ(out.Read(bytes, 6), 6u);
    EXPECT_STREQ(bytes, "hello!");
    out.Close();
    EXPECT_EQ(out.Read(bytes, 1), 0u);
    EXPECT_EQ(CXFile::HandleFromDescriptor(-1), nullptr);
    EXPECT_NE(CXFile::HandleFromDescriptor(0), nullptr);
}

// Sharing

constexpr unsigned kOpeners[] = {0x00, 0x10, 0x20, 0x30, 0x40, 0x01, 0x11, 0x21,
                                 0x31, 0x41, 0x02, 0x12, 0x22, 0x32, 0x42};

bool Permits(unsigned opener, unsigned other)
{
    const unsigned share = opener & 0x70;
    const bool reads = (other & 3) != 1;
    const bool writes = (other & 3) != 0;
    return share == 0x40 || (share == 0x20 && !writes) || (share == 0x30 && !reads);
}

/// One character for each of the openers: whether it can open the file now.
std::string WhoCanOpen(const std::wstring& path)
{
    std::string answers;
    for (const unsigned opener : kOpeners)
    {
        const int cause = OpenCause(path, opener);
        answers += cause == kOpened ? 'y' : cause == fileSharingViolation ? 'n' : '?';
    }
    return answers;
}

/// Another process, which holds a file open until it is killed.
class OtherProcess
{
public:
    OtherProcess(const std::wstring& path, unsigned flags)
        : m_process([&] {
              CXFile file(false);
              const bool opened = file.Open(path.c_str(), flags);
              return write(m_opened.WriteEnd(), opened ? "y" : "n", 1) == 1 && pause() == 0;
          })
    {
        char answer = 0;
        EXPECT_TRUE(read(m_opened.ReadEnd(), &answer, 1) == 1 && answer == 'y');
    }
    ~OtherProcess() { m_process.Kill(); }

private:
    const Pipe m_opened;
    ChildProcess m_process;
};

TEST(CXFileSharing, FollowsTheRuleInOneProcessAndBetweenTwo)
{
    const TempFolder folder;
    const std::wstring path = folder.WriteFile("file", "x");
    for (const unsigned first : kOpeners)
    {
        SCOPED_TRACE(first);
        std::string expected;
        for (const unsigned second : kOpeners)
            expected += Permits(first, second) && Permits(second, first) ? 'y' : 'n';
        {
            const CXFile file(path.c_str(), first);
            EXPECT_EQ(WhoCanOpen(path), expected);
        }
        {
            const OtherProcess other(path, first);
            EXPECT_EQ(WhoCanOpen(path), expected) << "between two processes";
        }
        EXPECT_EQ(OpenCause(path, kAlone), kOpened);
    }
}

TEST(CXFileSharing, AsksEveryOpenerAndFollowsTheFile)
{
    const TempFolder folder;
    const std::wstring path = folder.WriteFile("file", "contents");
    const std::wstring moved = folder.WidePath("moved");
    CXFile denier(path.c_str(), CXFile::modeRead | CXFile::shareDenyWrite);
    CXFile reader(path.c_str(), CXFile::modeRead | CXFile::shareDenyNone);
    // The contents survive a refused open that would truncate, for reading too.
    for (const unsigned flags :
         {CXFile::modeWrite | 0u, CXFile::modeWrite | CXFile::modeCreate, CXFile::modeRead | CXFile::modeCreate})
        EXPECT_EQ(OpenCause(path, flags | CXFile::shareDenyNone), fileSharingViolation);
    EXPECT_EQ(folder.ReadFile("file"), "contents");
    // A file that was moved away takes its openers with it.
    std::filesystem::rename(folder.Path("file"), folder.Path("moved"));
    EXPECT_EQ(OpenCause(moved, CXFile::modeWrite | CXFile::shareDenyNone), fileSharingViolation);
    EXPECT_EQ(OpenCause(path, CXFile::modeWrite | CXFile::modeCreate), kOpened);

    denier.Close();
    EXPECT_EQ(OpenCause(moved, CXFile::modeWrite | CXFile::shareDenyNone), kOpened);
    EXPECT_EQ(OpenCause(moved, kAlone), fileSharingViolation);
}

TEST(CXFileSharing, LetsOneInWhenManyComeAtOnce)
{
    const TempFolder folder;
    const std::wstring path = folder.WriteFile("file", "x");
    std::atomic<int> holders{0};
    std::atomic<int> successes{0};
    std::atomic<bool> overlapped{false};
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    OnThreads(3, [&](int access) { // 0 read, 1 write, 2 both
        for (int left = 100; left > 0 && std::chrono::steady_clock::now() < deadline;)
        {
            CXFile file(false);
            if (!file.Open(path.c_str(), static_cast<unsigned>(access) | CXFile::shareExclusive))
                continue;
            overlapped = overlapped || ++holders != 1;
            std::this_thread::yield();
            --left;
            ++successes;
            --holders;
        }
    });
    EXPECT_FALSE(overlapped);
    EXPECT_EQ(successes, 300); // and every thread gets its turn
}

// Reading, writing, positions

TEST(CXFile, ReadsAndWritesAtItsPosition)
{
    const TempFolder folder;
    CXFile file(folder.WidePath("file").c_str(), CXFile::modeReadWrite | CXFile::modeCreate | kShared);
    std::vector<char> bytes(20); // on the heap: addresses that are 0xFFFFFFFF from the end of all addresses
    EXPECT_EQ(file.Read(bytes.data(), 10), 0u);
    file.Write("0123456789", 10);
    file.Write(nullptr, 0);
    EXPECT_EQ(file.GetPosition(), 10u);
    EXPECT_EQ(file.Seek(-4, CXFile::end), 6u);
    EXPECT_EQ(file.Read(bytes.data(), 3), 3u);
    EXPECT_STREQ(bytes.data(), "678");
    EXPECT_EQ(file.Read(nullptr, 1), 0u);
    EXPECT_EQ(file.Read(bytes.data(), 0), 0u);
    EXPECT_EQ(file.Seek(-8, CXFile::current), 1u);
    EXPECT_EQ(file.Read(bytes.data(), 0xFFFFFFFF), 9u);
    EXPECT_STREQ(bytes.data(), "123456789");

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

    for (const unsigned __int64 length : {2ull, 4ull, 5000000000ull})
    {
        EXPECT_TRUE(file.SetLength(length));
        EXPECT_EQ(file.GetPosition(), length);
        EXPECT_EQ(file.GetLength(), length);
    }
    EXPECT_TRUE(file.SetLength(4));
    EXPECT_EQ(folder.ReadFile("file"), std::string("01\0\0", 4));
    EXPECT_NE(Thrown([&file] { file.SetLength(~0ull); }), kNothingThrown);
    file.Close();
    EXPECT_EQ(file.GetFileName(), L"file");
}

TEST(CXFile, AnswersWithoutAFileAndExposesNoMemory)
{
    struct Exposing : CXFile
    {
        using CXFile::BufferCommand;
        using CXFile::CXFile;
    };
    for (const bool throws : {true, false})
    {
        const int cause = throws ? kNotFound : kNothingThrown; // what the table makes of an invalid handle
        Exposing file(throws);
        unsigned char byte = 0;
        unsigned char* start = nullptr;
        EXPECT_EQ(file.Read(&byte, 1), 0u);
        EXPECT_EQ(file.Seek(0, CXFile::begin), kFailed);
        EXPECT_EQ(file.GetPosition(), kFailed);
        EXPECT_EQ(file.GetLength(), kFailed);
        EXPECT_EQ(Thrown([&] { file.Write(&byte, 1); }), cause);
        EXPECT_EQ(Thrown([&] { EXPECT_FALSE(file.SetLength(1)); }), cause);
        for (const unsigned command : {0u, 1u, 2u, 3u})
            EXPECT_EQ(file.BufferCommand(command, 10, &start, &start), 0u);
        file.Flush();
        file.Close();
        file.Abort();
    }
}

TEST(CXFile, PassesOnWhatTheSystemSays)
{
    const TempFolder folder;
    const std::wstring path = folder.WriteFile("file", "0123456789");
    const auto read = [](CXFile& file) { EXPECT_EQ(ReadAll(file), ""); };
    const auto write = [](CXFile& file) { file.Write("x", 1); };
    const auto setLength = [](CXFile& file) { EXPECT_FALSE(file.SetLength(100)); };
    const struct
    {
        int error; ///< 0: the system names none
        int cause;
        void (*run)(CXFile&);
    } cases[] = {
        {EIO, fileHardIO, read},
        {0, fileGeneric, read},
        {EIO, fileHardIO, write},
        {ENOTTY, fileGeneric, write}, // unknown to the table
        {0, fileGeneric, write},
        {EIO, fileHardIO, setLength},
        {0, fileDiskFull, setLength},
        {EDQUOT, fileDiskFull, [](CXFile& file) { file.Flush(); }},
        {EIO, fileHardIO, [](CXFile& file) { file.Close(); }},
        {EIO, kNothingThrown, [](CXFile& file) { file.Abort(); }},
        {EINVAL, kNothingThrown, [](CXFile& file) { EXPECT_EQ(file.Seek(0, CXFile::begin), kFailed); }},
    };
    FailingFileSystem files;
    for (const auto& c : cases)
    {
        for (const bool throws : {true, false})
        {
            SCOPED_TRACE(&c - cases);
            CXFile file(throws);
            ASSERT_TRUE(file.Open(path.c_str(), kAlone));
            files.FailAt(1, c.error);
            EXPECT_EQ(Thrown([&] { c.run(file); }), throws ? c.cause : kNothingThrown);
        }
    }
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
    CXFile device(L"/dev/full", kAlone);
    EXPECT_EQ(Thrown([&] { device.Write("x", 1); }), fileDiskFull);
}
} // namespace
