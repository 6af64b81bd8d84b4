#include "platform/FileSystem.h"
#include "platform/IoLoops.h"
#include "platform/PathNames.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include <unistd.h>

namespace
{
using namespace tev::platform;
using tev::test::TempFolder;

constexpr int kEnd = 0; // what a scripted call answers at the end of the file, or when a device takes no more

/// A read(2) or write(2) that answers as it is told: a number of bytes, or a negative errno.
class ScriptedCall
{
public:
    explicit ScriptedCall(std::vector<int> answers) : m_answers(std::move(answers)) {}

    std::ptrdiff_t operator()(const void* bytes, std::size_t count)
    {
        m_addresses.push_back(static_cast<const char*>(bytes));
        m_counts.push_back(count);
        const int answer = m_answers.at(m_counts.size() - 1);
        errno = answer < 0 ? -answer : 0;
        return answer < 0 ? -1 : answer;
    }

    std::vector<const char*> m_addresses;
    std::vector<std::size_t> m_counts;

private:
    std::vector<int> m_answers;
};

struct LoopCase
{
    const char* name;
    std::vector<int> answers;
    std::size_t moved;
    bool readSucceeds;
    bool writeSucceeds;
    int error; ///< errno afterwards, where one of them fails
};

TEST(IoLoops, RepeatWhatWasInterruptedAndShort)
{
    const LoopCase cases[] = {
        {"at once", {10}, 10, true, true, 0},
        {"in pieces", {3, 1, 6}, 10, true, true, 0},
        {"interrupted", {-EINTR, 4, -EINTR, -EINTR, 6}, 10, true, true, 0},
        {"ends early", {4, kEnd}, 4, true, true, 0},
        {"nothing there", {kEnd}, 0, true, true, 0},
        {"fails at once", {-EIO}, 0, false, false, EIO},
        {"fails after a part", {4, -ENOSPC}, 4, true, false, ENOSPC},
        {"fails after an interruption", {-EINTR, -EBADF}, 0, false, false, EBADF},
    };
    for (const LoopCase& c : cases)
    {
        SCOPED_TRACE(c.name);
        char buffer[10] = {};
        ScriptedCall readCall(c.answers);
        std::size_t moved = 99;
        EXPECT_EQ(ReadFully(readCall, buffer, sizeof(buffer), moved), c.readSucceeds);
        EXPECT_EQ(moved, c.moved);
        EXPECT_EQ(readCall.m_counts.size(), c.answers.size());

        ScriptedCall writeCall(c.answers);
        moved = 99;
        EXPECT_EQ(WriteFully(writeCall, buffer, sizeof(buffer), moved), c.writeSucceeds);
        if (!c.writeSucceeds)
        {
            EXPECT_EQ(errno, c.error);
        }
        EXPECT_EQ(moved, c.moved);
        for (std::size_t i = 0; i < writeCall.m_counts.size(); ++i)
            EXPECT_EQ(writeCall.m_addresses[i] + writeCall.m_counts[i], buffer + sizeof(buffer)) << "call " << i;
    }
}

TEST(IoLoops, MoveMoreThanOneCallCan)
{
    constexpr std::size_t kCount = 0xFFFFFFFF;
    char base = 0;
    std::vector<std::size_t> counts;
    const auto takeAll = [&counts](const void*, std::size_t count) {
        counts.push_back(count);
        return static_cast<std::ptrdiff_t>(count);
    };
    std::size_t moved = 0;
    EXPECT_TRUE(ReadFully(takeAll, &base, kCount, moved));
    EXPECT_EQ(moved, kCount);
    EXPECT_TRUE(WriteFully(takeAll, &base, kCount, moved));
    EXPECT_EQ(moved, kCount);
    const std::vector<std::size_t> once = {0x7ffff000, 0x7ffff000, 0x1fff};
    std::vector<std::size_t> twice = once;
    twice.insert(twice.end(), once.begin(), once.end());
    EXPECT_EQ(counts, twice);
}

std::wstring Wide(std::initializer_list<unsigned> codePoints)
{
    std::wstring text;
    for (const unsigned c : codePoints)
        text += static_cast<wchar_t>(c);
    return text;
}

TEST(PathNames, GoToUtf8AndBack)
{
    const struct
    {
        std::wstring wide;
        const char* system;
    } cases[] = {
        {L"", ""},
        {L"/a/b.txt", "/a/b.txt"},
        {Wide({0x7F, 0x80, 0x7FF, 0x800, 0xFFFF}), "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF"},
        {Wide({0xD7FF, 0xE000}), "\xED\x9F\xBF\xEE\x80\x80"},
        {Wide({0x10000, 0x10FFFF}), "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"},
        // Bytes that are no UTF-8: stray ones, overlong forms, a surrogate, above the last code point, cut off.
        {Wide({'a', 0xDC80, 'b', 0xDCFF}), "a\x80"
                                           "b\xFF"},
        {Wide({0xDCC0, 0xDCAF}), "\xC0\xAF"},
        {Wide({0xDCE0, 0xDC80, 0xDC80}), "\xE0\x80\x80"},
        {Wide({0xDCED, 0xDCA0, 0xDC80}), "\xED\xA0\x80"},
        {Wide({0xDCF4, 0xDC90, 0xDC80, 0xDC80}), "\xF4\x90\x80\x80"},
        {Wide({0xDCF8, 0xDC88, 0xDC80, 0xDC80, 0xDC80}), "\xF8\x88\x80\x80\x80"},
        {Wide({0xDCE2, 0xDC82}), "\xE2\x82"},
        {Wide({0xDCE2, 0xDC82, 'x', 0xE9}), "\xE2\x82x\xC3\xA9"},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.system);
        std::string system = "before";
        EXPECT_TRUE(WidePathToSystem(c.wide.c_str(), system));
        EXPECT_EQ(system, c.system);
        EXPECT_EQ(SystemPathToWide(c.system), c.wide);
    }
}

TEST(PathNames, TakeWhatOnlyWideTextCanSay)
{
    const struct
    {
        std::wstring wide;
        bool valid;
        const char* system;
    } cases[] = {
        {L"\\a\\b/c", true, "/a/b/c"},
        {Wide({0xD83D, 0xDE00}), true, "\xF0\x9F\x98\x80"}, // a surrogate pair
        {Wide({0xD800, 0xDC80}), true, "\xF0\x90\x82\x80"}, // a pair, though its second half alone would be a byte
        {Wide({'a', 0xD800}), false, ""},
        {Wide({0xD800, 'a'}), false, ""},
        {Wide({0xDC7F}), false, ""},
        {Wide({0xDD00}), false, ""},
        {Wide({0x110000}), false, ""},
    };
    for (const auto& c : cases)
    {
        std::string system;
        ASSERT_EQ(WidePathToSystem(c.wide.c_str(), system), c.valid) << "case " << (&c - cases);
        if (c.valid)
        {
            EXPECT_EQ(system, c.system);
        }
    }
    std::string system = "before";
    EXPECT_TRUE(WidePathToSystem(nullptr, system));
    EXPECT_EQ(system, "");
}

TEST(FileSystem, ReplacesItsOneInstance)
{
    FileSystem& own = SystemFileSystem();
    EXPECT_EQ(&CurrentFileSystem(), &own);
    EXPECT_EQ(ReplaceFileSystem(nullptr), &own);
    EXPECT_EQ(&CurrentFileSystem(), &own);
    EXPECT_EQ(FileHandleFromDescriptor(-1), nullptr);
    EXPECT_NE(FileHandleFromDescriptor(0), nullptr);
}

TEST(FileSystem, TellsItsErrorsInErrno)
{
    const TempFolder folder;
    FileSystem& files = SystemFileSystem();
    const std::wstring path = folder.WriteFile("file", "0123456789");
    FileOpenMode mode;
    FileHandle file = files.Open(path.c_str(), mode);
    ASSERT_NE(file, nullptr);

    char byte = 0;
    std::size_t moved = 0;
    std::uint64_t where = 0;
    const auto errorOf = [](bool done) { return done ? 0 : errno; };
    // A file that is open for the other access is not one that is not open.
    EXPECT_EQ(errorOf(files.Write(file, &byte, 1, moved)), EACCES);
    EXPECT_EQ(errorOf(files.SetLength(file, 1)), EACCES);
    EXPECT_EQ(errorOf(files.SetLength(file, ~0ull)), EFBIG);
    EXPECT_EQ(errorOf(files.Seek(file, -1, SeekOrigin::Begin, where)), EINVAL);
    EXPECT_EQ(errorOf(files.Read(nullptr, &byte, 1, moved)), EBADF);
    EXPECT_EQ(errorOf(files.Write(nullptr, &byte, 1, moved)), EBADF);
    EXPECT_EQ(errorOf(files.Sync(nullptr)), EBADF);
    EXPECT_EQ(errorOf(files.GetLength(nullptr, where)), EBADF);
    EXPECT_EQ(errorOf(files.Close(nullptr)), EBADF);
    EXPECT_TRUE(files.Close(file));
    EXPECT_EQ(files.Open(folder.WidePath().c_str(), mode), nullptr);
    EXPECT_EQ(errno, EISDIR);
    EXPECT_EQ(files.Open(L"", mode), nullptr);
    EXPECT_EQ(errno, ENOENT);

    mode.access = FileAccess::Write;
    file = files.Open(path.c_str(), mode);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(errorOf(files.Read(file, &byte, 1, moved)), EACCES);
    EXPECT_TRUE(files.Close(file));
}

TEST(FileSystem, MeasuresOnlyWhatHasALength)
{
    FileSystem& files = SystemFileSystem();
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const FileHandle source = FileHandleFromDescriptor(ends[0]);
    std::uint64_t length = 7;
    EXPECT_FALSE(files.GetLength(source, length));
    EXPECT_EQ(errno, ESPIPE);
    EXPECT_TRUE(files.Sync(FileHandleFromDescriptor(ends[1])));
    EXPECT_TRUE(files.Close(source));
    EXPECT_TRUE(files.Close(FileHandleFromDescriptor(ends[1])));
}
} // namespace
