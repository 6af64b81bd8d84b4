#include "platform/FileSystem.h"
#include "platform/IoLoops.h"
#include "platform/PathNames.h"
#include "tests/support/TempFolder.h"
#include "tests/support/Testing.h"

#include <unistd.h>

namespace
{
using namespace tev::test;
using namespace tev::platform;

/// A read(2) or write(2) that answers as it is told: a number of bytes, 0 for no more, or a negative errno.
struct ScriptedCall
{
    std::vector<int> answers;
    std::vector<std::pair<const char*, std::size_t>> calls = {};

    std::ptrdiff_t operator()(const void* bytes, std::size_t count)
    {
        const int answer = answers.at(calls.size());
        calls.emplace_back(static_cast<const char*>(bytes), count);
        errno = answer < 0 ? -answer : 0;
        return answer < 0 ? -1 : answer;
    }
};

TEST(IoLoops, RepeatWhatWasInterruptedAndShort)
{
    const struct
    {
        std::vector<int> answers;
        std::size_t moved;
        bool readSucceeds;
        int writeError;
    } cases[] = {{{10}, 10, true, 0},
                 {{3, 1, 6}, 10, true, 0},
                 {{-EINTR, 4, -EINTR, -EINTR, 6}, 10, true, 0},
                 {{4, 0}, 4, true, 0},
                 {{0}, 0, true, 0},
                 {{-EIO}, 0, false, EIO},
                 {{4, -ENOSPC}, 4, true, ENOSPC},
                 {{-EINTR, -EBADF}, 0, false, EBADF}};
    for (const auto& c : cases)
    {
        SCOPED_TRACE(&c - cases);
        char buffer[10] = {};
        ScriptedCall read{c.answers};
        ScriptedCall write{c.answers};
        std::size_t moved = 99;
        EXPECT_EQ(ReadFully(read, buffer, sizeof(buffer), moved), c.readSucceeds);
        EXPECT_EQ(moved, c.moved);
        ScriptedCall readOnce{c.answers};
        const int answer = *std::find_if(c.answers.begin(), c.answers.end(), [](int each) { return each != -EINTR; });
        EXPECT_EQ(ReadAvailable(readOnce, buffer, sizeof(buffer), moved), answer >= 0);
        EXPECT_EQ(static_cast<int>(moved), std::max(answer, 0));
        moved = 99;
        EXPECT_EQ(WriteFully(write, buffer, sizeof(buffer), moved) ? 0 : errno, c.writeError);
        EXPECT_EQ(moved, c.moved);
        EXPECT_EQ(read.calls, write.calls);
        EXPECT_EQ(write.calls.size(), c.answers.size());
        for (const auto& [bytes, count] : write.calls)
            EXPECT_EQ(bytes + count, buffer + sizeof(buffer));
    }
}

TEST(IoLoops, MoveMoreThanOneCallCan)
{
    char base = 0;
    std::vector<std::size_t> counts;
    const auto takeAll = [&counts](const void*, std::size_t count) {
        counts.push_back(count);
        return static_cast<std::ptrdiff_t>(count);
    };
    std::size_t moved[2] = {};
    EXPECT_TRUE(ReadFully(takeAll, &base, 0xFFFFFFFF, moved[0]));
    EXPECT_TRUE(WriteFully(takeAll, &base, 0xFFFFFFFF, moved[1]));
    EXPECT_TRUE(moved[0] == 0xFFFFFFFF && moved[1] == 0xFFFFFFFF);
    EXPECT_EQ(counts, (std::vector<std::size_t>{0x7ffff000, 0x7ffff000, 0x1fff, 0x7ffff000, 0x7ffff000, 0x1fff}));
}

std::wstring Wide(std::initializer_list<unsigned> codePoints)
{
    std::wstring text;
    for (const unsigned c : codePoints)
        text += static_cast<wchar_t>(c);
    return text;
}

TEST(PathNames, GoToTheSystemAndBack)
{
    constexpr bool kOnlyThere = true;
    const struct
    {
        std::wstring wide;
        const char* system; ///< null: no name can be so
        bool onlyThere = false;
    } cases[] = {
        {L"", ""},
        {L"/a/b.txt", "/a/b.txt"},
        {L"\\a\\b/c", "/a/b/c", kOnlyThere},
        {Wide({0x7F, 0x80, 0x7FF, 0x800, 0xFFFF}), "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF"},
        {Wide({0xD7FF, 0xE000}), "\xED\x9F\xBF\xEE\x80\x80"},
        {Wide({0x10000, 0x10FFFF}), "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"},
        {Wide({0xD83D, 0xDE00}), "\xF0\x9F\x98\x80", kOnlyThere}, // a surrogate pair
        {Wide({0xD800, 0xDC80}), "\xF0\x90\x82\x80", kOnlyThere}, // though its second half alone would be a byte
        // Bytes that are no UTF-8: stray ones, overlong forms, a surrogate, above the last code point, cut off.
        {Wide({'a', 0xDC80, 'z', 0xDCFF}), "a\x80z\xFF"},
        {Wide({0xDCC0, 0xDCAF}), "\xC0\xAF"},
        {Wide({0xDCE0, 0xDC80, 0xDC80}), "\xE0\x80\x80"},
        {Wide({0xDCED, 0xDCA0, 0xDC80}), "\xED\xA0\x80"},
        {Wide({0xDCF4, 0xDC90, 0xDC80, 0xDC80}), "\xF4\x90\x80\x80"},
        {Wide({0xDCF8, 0xDC88, 0xDC80, 0xDC80, 0xDC80}), "\xF8\x88\x80\x80\x80"},
        {Wide({0xDCE2, 0xDC82}), "\xE2\x82"},
        {Wide({0xDCE2, 0xDC82, 'x', 0xE9}), "\xE2\x82x\xC3\xA9"},
        {Wide({'a', 0xD800}), nullptr},
        {Wide({0xD800, 'a'}), nullptr},
        {Wide({0xDC7F}), nullptr},
        {Wide({0xDD00}), nullptr},
        {Wide({0x110000}), nullptr},
    };
    std::string system = "before";
    EXPECT_TRUE(WidePathToSystem(nullptr, system) && system.empty());
    for (const auto& c : cases)
    {
        SCOPED_TRACE(&c - cases);
        system = "before";
        ASSERT_EQ(WidePathToSystem(c.wide.c_str(), system), c.system != nullptr);
        if (c.system == nullptr)
            continue;
        EXPECT_EQ(system, c.system);
        EXPECT_EQ(SystemPathToWide(c.system) == c.wide, !c.onlyThere);
    }
}

TEST(FileSystem, ReportsErrorsInErrno)
{
    const TempFolder folder;
    FileSystem& files = SystemFileSystem();
    const std::wstring path = folder.WriteFile("file", "0123456789");
    FileOpenMode mode;
    const FileHandle reader = files.Open(path.c_str(), mode);
    mode.access = FileAccess::Write;
    const FileHandle writer = files.Open(path.c_str(), mode);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const FileHandle source = FileHandleFromDescriptor(ends[0]);
    const FileHandle sink = FileHandleFromDescriptor(ends[1]);

    char byte = 0;
    std::size_t moved = 0;
    std::uint64_t where = 0;
    const auto errorOf = [](bool done) { return done ? 0 : errno; };
    // A file that is open for the other access is not one that is not open.
    EXPECT_EQ(errorOf(files.Write(reader, &byte, 1, moved)), EACCES);
    EXPECT_EQ(errorOf(files.SetLength(reader, 1)), EACCES);
    EXPECT_EQ(errorOf(files.Read(writer, &byte, 1, moved)), EACCES);
    EXPECT_EQ(errorOf(files.Read(nullptr, &byte, 1, moved)), EBADF);
    EXPECT_EQ(errorOf(files.Write(nullptr, &byte, 1, moved)), EBADF);
    EXPECT_EQ(errorOf(files.Sync(nullptr)), EBADF);
    EXPECT_EQ(errorOf(files.GetLength(nullptr, where)), EBADF);
    EXPECT_EQ(errorOf(files.Close(nullptr)), EBADF);
    EXPECT_EQ(errorOf(files.SetLength(writer, ~0ull)), EFBIG);
    EXPECT_EQ(errorOf(files.Seek(reader, -1, SeekOrigin::Begin, where)), EINVAL);
    EXPECT_EQ(errorOf(files.Open(folder.WidePath().c_str(), mode) != nullptr), EISDIR);
    EXPECT_EQ(errorOf(files.Open(L"", mode) != nullptr), ENOENT);
    EXPECT_EQ(errorOf(files.GetLength(source, where)), ESPIPE);
    EXPECT_TRUE(files.Sync(sink));
    for (const FileHandle file : {reader, writer, source, sink})
        EXPECT_TRUE(files.Close(file));
}
} // namespace
