#include "files/CXArchive.h"
#include "files/CXMemFile.h"
#include "objects/CXException.h"
#include "objects/CXFileException.h"
#include "objects/ThreadException.h"
#include "tests/support/FileFailure.h"
#include "tests/support/PrintText.h"
#include "tests/support/TextTools.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace
{
using Bytes = std::vector<unsigned char>;

// A memory file that does not expose its memory, so that the archive works through a buffer, as over a disk file. It
// may deliver in small pieces, as a pipe does.
class UnlentFile : public CXMemFile
{
public:
    using CXMemFile::CXMemFile;
    unsigned Read(void* buffer, unsigned count) override { return CXMemFile::Read(buffer, std::min(count, m_piece)); }
    unsigned m_piece = 0xFFFFFFFF;

protected:
    unsigned __int64 BufferCommand(unsigned, unsigned __int64, unsigned char**, unsigned char**) override { return 0; }
};

// The ways in which an archive can get at its bytes: in place, or through a buffer of a size, its own or the caller's.
struct Way
{
    bool m_direct;
    unsigned m_bufferSize;
    bool m_callersBuffer;
    unsigned m_piece = 0xFFFFFFFF; // the most that the file delivers at once
};
const Way kWays[] = {{true, 4096, false}, {true, 0, false},       {true, 131, false},   {false, 4096, false},
                     {false, 128, false}, {false, 131, false},    {false, 0, false},    {false, 200, true},
                     {false, 5000, true}, {false, 150, false, 1}, {false, 128, true, 7}};

class Stream
{
public:
    Stream(const Way& way, unsigned mode, const Bytes& contents = {})
        : m_buffer(way.m_callersBuffer ? way.m_bufferSize : 0)
    {
        if (way.m_direct)
            m_file = std::make_unique<CXMemFile>();
        else
        {
            auto file = std::make_unique<UnlentFile>();
            file->m_piece = way.m_piece;
            m_file = std::move(file);
        }
        m_file->Write(contents.data(), static_cast<unsigned>(contents.size()));
        m_file->SeekToBegin();
        m_archive = std::make_unique<CXArchive>(m_file.get(), mode, way.m_bufferSize,
                                                m_buffer.empty() ? nullptr : m_buffer.data());
    }
    CXArchive& operator*() { return *m_archive; }
    CXArchive* operator->() { return m_archive.get(); }
    CXMemFile& File() { return *m_file; }
    Bytes Finish()
    {
        m_archive->Close();
        return {m_file->GetBuffer(), m_file->GetBuffer() + m_file->GetLength()};
    }

private:
    std::unique_ptr<CXMemFile> m_file;
    Bytes m_buffer;
    std::unique_ptr<CXArchive> m_archive;
};

Bytes Stored(const std::function<void(CXArchive&)>& write, const Way& way = kWays[0])
{
    Stream stream(way, xArchiveStore);
    write(*stream);
    return stream.Finish();
}

// Cause of what the call throws; -1 when it throws nothing, -2 for an invalid argument, -3 for a lack of memory.
template <class Call>
int CauseOf(const Call& call)
{
    return tev::test::Thrown<CXArchiveException>(call);
}

int CauseOfReading(const Bytes& bytes, const std::function<void(CXArchive&)>& read, unsigned mode = xArchiveLoad)
{
    return CauseOf([&] {
        Stream stream(kWays[0], mode, bytes);
        read(*stream);
    });
}

Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Bytes operator+(Bytes left, const char* right)
{
    return std::move(left) + Bytes(right, right + std::char_traits<char>::length(right));
}

class Node : public CXObject
{
public:
    X_DECLARE_CLASS(Node)
    void Serialize(CXArchive& archive) override
    {
        if (archive.IsStoring())
            archive << m_value << m_left << m_right;
        else
        {
            m_schemaBefore = archive.GetObjectSchema();
            archive >> m_value >> m_left >> m_right;
            m_schemaAfter = archive.GetObjectSchema();
            if (m_value == kSwallows)
                XSetThreadException(new CXUserException);
        }
    }
    static constexpr int kSwallows = 99; // an exception that its reader caught and forgot
    int m_value = 0;
    CXObject* m_left = nullptr;
    CXObject* m_right = nullptr;
    unsigned m_schemaBefore = 0;
    unsigned m_schemaAfter = 0;
};
class Leaf : public Node
{
public:
    X_DECLARE_CLASS(Leaf)
};
class Versioned : public Node
{
public:
    X_DECLARE_CLASS(Versioned)
};
class Transient : public CXObject
{
public:
    X_DECLARE_CLASS(Transient)
};
class Abstract : public CXObject
{
public:
    X_DECLARE_CLASS(Abstract)
};
X_IMPLEMENT_CLASS(Node, CXObject, 3)
X_IMPLEMENT_CLASS(Leaf, Node, 1)
X_IMPLEMENT_CLASS(Versioned, Node, 7 | xSchemaVersionable)
X_IMPLEMENT_CLASS(Transient, CXObject, 1 | xSchemaNotSerializable)
X_IMPLEMENT_ABSTRACT_CLASS(Abstract, CXObject, 1)

const CXRuntimeClass* const kNode = Node::GetThisRuntimeClassDescriptor();
const CXRuntimeClass* const kLeaf = Leaf::GetThisRuntimeClassDescriptor();
const Bytes kNewNode = Bytes{0xFF, 0xFF, 3, 0, 4, 0} + "Node";
const Bytes kNewLeaf = Bytes{0xFF, 0xFF, 1, 0, 4, 0} + "Leaf";
const Bytes kNoLinks = {0, 0, 0, 0};

// Deletes what an archive has created, once each.
void DeleteCreated(CXArchive& archive)
{
    for (CXObject* object : archive.GetCreatedObjects())
        delete object;
}

template <class T, class = void>
constexpr bool kIsStored = false;
template <class T>
constexpr bool kIsStored<T, std::void_t<decltype(std::declval<CXArchive&>() << std::declval<T>())>> = true;
static_assert(kIsStored<char> && !kIsStored<signed char> && !kIsStored<char16_t> && !kIsStored<long> &&
              !kIsStored<const Bytes*>);

TEST(CXArchiveTest, ScalarsStandLittleEndian)
{
    const Bytes expected = {1,    'x',  0xFE, 0xFE, 0xFF, 0x34, 0x12, 0xAC, 0x20, 0xFE, 0xFF, 0xFF, 0xFF, 0x78, 0x56,
                            0x34, 0x12, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xEF, 0xCD, 0xAB, 0x89, 0x67,
                            0x45, 0x23, 0x01, 0x00, 0x00, 0xC0, 0x3F, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x04, 0xC0};
    const std::tuple<bool, char, unsigned char, short, unsigned short, wchar_t, int, unsigned, __int64,
                     unsigned __int64, float, double>
        values = {true, 'x', 0xFE, -2, 0x1234, L'\u20AC', -2, 0x12345678, -2, 0x0123456789ABCDEF, 1.5f, -2.5};
    const auto store = [&](CXArchive& archive) { std::apply([&](auto... each) { (archive << ... << each); }, values); };
    for (const Way& way : kWays)
    {
        ASSERT_EQ(Stored(store, way), expected);
        Stream stream(way, xArchiveLoad, expected);
        std::decay_t<decltype(values)> loaded;
        std::apply([&](auto&... each) { (*stream >> ... >> each); }, loaded);
        EXPECT_FALSE(std::get<bool>(loaded)) << "a bool that is read must leave the variable alone";
        std::get<bool>(loaded) = true;
        EXPECT_EQ(loaded, values);
        EXPECT_EQ(CauseOf([&] { *stream >> std::get<char>(loaded); }), archiveEndOfFile);
    }
    EXPECT_EQ(CauseOf([] { Stored([](CXArchive& archive) { archive << L'\U0001F600'; }); }),
              sizeof(wchar_t) > 2 ? -2 : -1);
}

TEST(CXArchiveTest, CountsAndLengthsTakeTheShortestForm)
{
    const Bytes ff2 = {0xFF, 0xFF};
    const Bytes ff4 = {0xFF, 0xFF, 0xFF, 0xFF};
    const struct
    {
        unsigned __int64 m_value;
        Bytes m_count;
        Bytes m_length;
    } rows[] = {
        {0, {0, 0}, {0}},
        {254, {254, 0}, {254}},
        {255, {255, 0}, {0xFF, 255, 0}},
        {0xFFFB, {0xFB, 0xFF}, {0xFF, 0xFB, 0xFF}},
        {0xFFFC, {0xFC, 0xFF}, Bytes{0xFF} + ff2 + Bytes{0xFC, 0xFF, 0, 0}},
        {0xFFFE, {0xFE, 0xFF}, Bytes{0xFF} + ff2 + Bytes{0xFE, 0xFF, 0, 0}},
        {0xFFFF, ff2 + Bytes{0xFF, 0xFF, 0, 0}, Bytes{0xFF} + ff2 + Bytes{0xFF, 0xFF, 0, 0}},
        {0xFFFFFFFE, ff2 + Bytes{0xFE, 0xFF, 0xFF, 0xFF}, Bytes{0xFF} + ff2 + Bytes{0xFE, 0xFF, 0xFF, 0xFF}},
        {0xFFFFFFFF, ff2 + ff4 + ff4 + kNoLinks, Bytes{0xFF} + ff2 + ff4 + ff4 + kNoLinks},
        {0x100000000, ff2 + ff4 + kNoLinks + Bytes{1, 0, 0, 0}, Bytes{0xFF} + ff2 + ff4 + kNoLinks + Bytes{1, 0, 0, 0}},
    };
    const std::pair<xStringEncoding, Bytes> tags[] = {{xEncodingAnsi, {}},
                                                      {xEncodingUtf8, {0xFF, 0xFD, 0xFF}},
                                                      {xEncodingUtf16, {0xFF, 0xFE, 0xFF}},
                                                      {xEncodingUtf16BE, {0xFF, 0xFC, 0xFF}}};
    for (const auto& row : rows)
    {
        EXPECT_EQ(Stored([&](CXArchive& archive) { archive.WriteCount(row.m_value); }), row.m_count);
        EXPECT_EQ(Stream(kWays[0], xArchiveLoad, row.m_count)->ReadCount(), row.m_value);
        for (const auto& [encoding, tag] : tags)
        {
            const xStringEncoding written = encoding;
            EXPECT_EQ(Stored([&](CXArchive& archive) { archive.WriteStringLength(row.m_value, written); }),
                      tag + row.m_length);
            auto read = xEncodingUnknown;
            EXPECT_EQ(Stream(kWays[3], xArchiveLoad, tag + row.m_length)->ReadStringLength(read), row.m_value);
            EXPECT_EQ(read, encoding);
        }
    }
    EXPECT_EQ(Stored([](CXArchive& archive) { archive.WriteStringLength(1, xStringEncoding(1252)); }), Bytes{1});
    // Behind a tag the reserved values are lengths.
    auto encoding = xEncodingUnknown;
    EXPECT_EQ(Stream(kWays[0], xArchiveLoad, {0xFF, 0xFE, 0xFF, 0xFF, 0xFD, 0xFF})->ReadStringLength(encoding),
              0xFFFDu);
    EXPECT_EQ(encoding, xEncodingUtf16);
}

TEST(CXArchiveTest, TextIsStoredUntaggedOrAsUnits)
{
    const auto narrow = [](const CXTString<char>& text) { return Stored([&](CXArchive& a) { a << text; }); };
    const auto wide = [](const CXTString<wchar_t>& text) { return Stored([&](CXArchive& a) { a << text; }); };
    EXPECT_EQ(narrow("ab"), (Bytes{2, 'a', 'b'}));
    EXPECT_EQ(narrow(CXTString<char>("a\0b", 3)), (Bytes{1, 'a'}));
    EXPECT_EQ(narrow(""), Bytes{0});
    EXPECT_EQ(wide(L""), (Bytes{0xFF, 0xFE, 0xFF, 0}));
    EXPECT_EQ(wide(L"a\u20AC"), (Bytes{0xFF, 0xFE, 0xFF, 2, 'a', 0, 0xAC, 0x20}));
    EXPECT_EQ(wide(CXTString<wchar_t>(L"a\0b", 3)), (Bytes{0xFF, 0xFE, 0xFF, 1, 'a', 0}));
    EXPECT_EQ(wide(L"\U0001F600"), (Bytes{0xFF, 0xFE, 0xFF, 2, 0x3D, 0xD8, 0x00, 0xDE}));
    const wchar_t lone[] = {0xD83D, L'x', 0};
    EXPECT_EQ(wide(lone), (Bytes{0xFF, 0xFE, 0xFF, 2, 0x3D, 0xD8, 'x', 0}));

    // A class that knows its text better names the encoding; nothing is converted.
    struct Exposed : CXArchive
    {
        using CXArchive::CXArchive;
        using CXArchive::WriteString;
    };
    CXMemFile file;
    Exposed archive(&file, xArchiveStore);
    archive.WriteString("\xC3\xA9", xEncodingUtf8);
    archive.WriteString("", xEncodingUtf8);
    archive.WriteString(L"h\u20AC", xEncodingUtf16BE);
    archive.WriteString("a", xEncodingUnknown);
    archive.Close();
    const Bytes expected = {0xFF, 0xFD, 0xFF, 2, 0xC3, 0xA9, 0xFF, 0xFD, 0xFF, 0,
                            0xFF, 0xFC, 0xFF, 2, 'h',  0,    0xAC, 0x20, 1,    'a'};
    EXPECT_EQ(Bytes(file.GetBuffer(), file.GetBuffer() + file.GetLength()), expected);
}

TEST(CXArchiveTest, UntaggedTextIsInTheAnsiCodePage)
{
    const tev::test::AnsiCodePage western(1252);
    CXTString<wchar_t> wide;
    *Stream(kWays[0], xArchiveLoad, {1, 0x80}) >> wide;
    CXTString<char> narrow;
    *Stream(kWays[0], xArchiveLoad, {0xFF, 0xFE, 0xFF, 2, 0xAC, 0x20, 0x05, 0x04}) >> narrow;
    EXPECT_EQ(wide, L"\u20AC");
    EXPECT_EQ(narrow, "\x80?");
}

TEST(CXArchiveTest, TextIsReadByItsTag)
{
    const struct
    {
        Bytes m_bytes;
        const char* m_narrow;
        const wchar_t* m_wide;
    } rows[] = {
        {{2, 'a', 'b'}, "ab", L"ab"},
        {{3, 0xE2, 0x82, 0xAC}, "\xE2\x82\xAC", L"\u20AC"},
        {{3, 'a', 0, 'b'}, "a", L"a"},
        {{0}, "", L""},
        {{0xFF, 0xFD, 0xFF, 3, 0xE2, 0x82, 0xAC}, "\xE2\x82\xAC", L"\u20AC"},
        {{0xFF, 0xFE, 0xFF, 2, 0xAC, 0x20, 'b', 0},
         "\xE2\x82\xAC"
         "b",
         L"\u20AC"
         L"b"},
        {{0xFF, 0xFE, 0xFF, 3, 'a', 0, 0, 0, 'b', 0}, "a", L"a"},
        {{0xFF, 0xFE, 0xFF, 2, 0x3D, 0xD8, 0x00, 0xDE}, "\xF0\x9F\x98\x80", L"\U0001F600"},
        {{0xFF, 0xFE, 0xFF, 0}, "", L""},
        {{0xFF, 0xFC, 0xFF, 0}, "", L""},
        {{0xFF, 0xFC, 0xFF, 2, 'h', 'i'}, "hi", nullptr},
    };
    for (const auto& row : rows)
    {
        for (const Way& way : kWays)
        {
            CXTString<char> narrow("before");
            Stream first(way, xArchiveLoad, row.m_bytes);
            *first >> narrow;
            EXPECT_EQ(narrow, row.m_narrow);
            EXPECT_EQ(CauseOf([&] { *first >> narrow; }), archiveEndOfFile) << "everything must have been read";

            CXTString<wchar_t> wide(L"before");
            Stream second(way, xArchiveLoad, row.m_bytes);
            *second >> wide;
            EXPECT_EQ(wide, row.m_wide == nullptr ? L"before" : row.m_wide);
            char next = 0;
            if (row.m_wide == nullptr)
            {
                *second >> next;
                EXPECT_EQ(next, 'h') << "what cannot be read stays in the stream";
            }
        }
    }
    // A length that is negative as a signed 32-bit number, and one whose text is not there.
    CXTString<char> narrow;
    CXTString<wchar_t> wide;
    for (const Bytes& bytes : {Bytes{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0},
                               Bytes{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F, 'a'}, Bytes{9, 'a'},
                               Bytes{0xFF, 0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F, 'a'}})
    {
        EXPECT_EQ(CauseOfReading(bytes, [&](CXArchive& archive) { archive >> narrow; }), archiveEndOfFile);
        EXPECT_EQ(CauseOfReading(bytes, [&](CXArchive& archive) { archive >> wide; }), archiveEndOfFile);
    }
}

TEST(CXArchiveTest, EverythingMayStraddleTheBuffer)
{
    CXTString<wchar_t> wide;
    Bytes block(700);
    for (int i = 0; i < 300; ++i)
        wide += static_cast<wchar_t>(L'a' + i % 26);
    for (size_t i = 0; i < block.size(); ++i)
        block[i] = static_cast<unsigned char>(i * 7);
    const CXTString<char> narrow(wide.GetConstBuffer());
    for (size_t offset = 0; offset < 270; ++offset)
    {
        const auto write = [&](CXArchive& archive) {
            archive.Write(block.data(), offset);
            archive << 0x0102030405060708ull << wide << narrow;
            archive.Write(block.data(), block.size());
            archive << -1;
        };
        const Bytes expected = Stored(write, kWays[0]);
        for (const Way& way : kWays)
        {
            ASSERT_EQ(Stored(write, way), expected) << offset;
            Stream stream(way, xArchiveLoad, expected);
            Bytes start(offset);
            stream->EnsureRead(start.data(), offset);
            unsigned __int64 number = 0;
            CXTString<wchar_t> readWide;
            CXTString<char> readNarrow;
            Bytes readBlock(block.size());
            int last = 0;
            *stream >> number >> readWide >> readNarrow;
            stream->EnsureRead(readBlock.data(), readBlock.size());
            *stream >> last;
            ASSERT_EQ(number, 0x0102030405060708ull) << offset;
            ASSERT_EQ(readWide, wide) << offset;
            ASSERT_EQ(readNarrow, narrow) << offset;
            ASSERT_EQ(readBlock, block) << offset;
            ASSERT_EQ(last, -1) << offset;
            ASSERT_EQ(stream->Read(start.data(), 1), 0u);
        }
    }
}

TEST(CXArchiveTest, ReadDeliversWhatThereIs)
{
    Bytes contents(1000, 'x');
    for (const Way& way : kWays)
    {
        Stream stream(way, xArchiveLoad, contents);
        Bytes target(2000);
        EXPECT_EQ(stream->Read(nullptr, 5), 0u);
        EXPECT_EQ(stream->Read(target.data(), 0), 0u);
        EXPECT_EQ(stream->Read(target.data(), 3), 3u);
        EXPECT_EQ(stream->Read(target.data(), 2000), 997u);
        EXPECT_EQ(CauseOf([&] { stream->EnsureRead(target.data(), 1); }), archiveEndOfFile);
    }
}

TEST(CXArchiveTest, FlushMovesTheFileToTheArchivesPosition)
{
    for (const Way& way : kWays)
    {
        Stream stream(way, xArchiveLoad, Bytes(1000, 'x'));
        int value;
        *stream >> value;
        stream->Flush();
        EXPECT_EQ(stream.File().GetPosition(), 4u);
        *stream >> value;
        stream->Close();
        EXPECT_EQ(stream.File().GetPosition(), 8u);
    }
}

// A memory file of which one access, counted from now, fails with an exception, or every one. It exposes its memory or not.
class FaultyFile : public CXMemFile
{
public:
    explicit FaultyFile(bool exposes) : m_exposes(exposes) {}
    unsigned Read(void* buffer, unsigned count) override { return Access(), CXMemFile::Read(buffer, count); }
    void Write(const void* buffer, unsigned count) override { Access(), CXMemFile::Write(buffer, count); }
    unsigned __int64 Seek(__int64 offset, SeekPosition origin) override
    {
        return Access(), CXMemFile::Seek(offset, origin);
    }
    int m_countdown = 0;
    bool m_broken = false;

protected:
    unsigned __int64 BufferCommand(unsigned command, unsigned __int64 count, unsigned char** start,
                                   unsigned char** stop) override
    {
        if (!m_exposes)
            return 0;
        if (command != bufferCheck)
            Access();
        return CXMemFile::BufferCommand(command, count, start, stop);
    }

private:
    void Access()
    {
        if (--m_countdown == 0 || m_broken)
            CXFileException::Throw(fileHardIO, GetFilePath());
    }
    bool m_exposes;
};

TEST(CXArchiveTest, ScalarsGoOnBehindAFileThatFailedOnce)
{
    constexpr unsigned kCount = 200;
    Bytes expected = {'x'}; // so that numbers straddle the buffer
    for (unsigned i = 0; i < kCount; ++i)
        expected = std::move(expected) + Bytes{static_cast<unsigned char>(i), 0, 0, 0};
    for (const bool exposes : {false, true})
    {
        bool failed = true;
        for (int access = 1; failed; ++access)
        {
            SCOPED_TRACE(testing::Message() << "exposes " << exposes << ", access " << access);
            failed = false;
            const auto insist = [&](const std::function<void()>& call) {
                try
                {
                    call();
                }
                catch (CXFileException* exception)
                {
                    failed = true;
                    exception->Delete();
                    call();
                }
            };
            FaultyFile file(exposes);
            file.m_countdown = access;
            CXArchive storing(&file, xArchiveStore, 128);
            insist([&] { storing << 'x'; });
            for (unsigned i = 0; i < kCount; ++i)
                insist([&] { storing << i; });
            insist([&] { storing.Close(); });
            ASSERT_EQ(Bytes(file.GetBuffer(), file.GetBuffer() + file.GetLength()), expected);

            file.m_countdown = 0;
            file.SeekToBegin();
            file.m_countdown = access;
            CXArchive loading(&file, xArchiveLoad, 128);
            char c = 0;
            insist([&] { loading >> c; });
            for (unsigned i = 0; i < kCount; ++i)
            {
                unsigned value = kCount;
                insist([&] { loading >> value; });
                ASSERT_EQ(value, i);
            }
            insist([&] { loading.Close(); });
            ASSERT_EQ(file.GetPosition(), expected.size());
        }
    }
}

TEST(CXArchiveTest, OnlyCloseTellsWhatCouldNotBeWritten)
{
    for (const bool exposes : {false, true})
    {
        FaultyFile file(exposes);
        CXArchive archive(&file, xArchiveStore);
        archive << 1;
        file.m_broken = true;
        EXPECT_EQ(tev::test::Thrown([&] { archive.Close(); }), fileHardIO);
        EXPECT_EQ(archive.GetFile(), &file);
    } // and the destructor, which tries once more, lets nothing out
    EXPECT_EQ(XTakeThreadException(), nullptr);
}

TEST(CXArchiveTest, AFinalFlushIsNotWrittenOver)
{
    for (const Way& way : kWays)
    {
        const Bytes bytes = Stored(
            [](CXArchive& archive) {
                archive << 'a';
                archive.Flush(true);
                archive << 'b';
            },
            way);
        EXPECT_EQ(bytes, (Bytes{'a', 'b'}));
    }
}

TEST(CXArchiveTest, AMemoryFileThatCannotGrowIsNotOverrun)
{
    class FullFile : public CXMemFile
    {
    public:
        FullFile() : CXMemFile(128, false) {}

    protected:
        bool GrowBuffer(unsigned __int64 needed) override { return needed <= 256 && CXMemFile::GrowBuffer(needed); }
    };
    FullFile file;
    CXArchive archive(&file, xArchiveStore, 128);
    int stored = 0;
    EXPECT_EQ(CauseOf([&] {
                  for (;; ++stored)
                      archive << stored;
              }),
              -3);
    EXPECT_EQ(stored, 256 / 4);
    EXPECT_EQ(CauseOf([&] { archive.Write(&stored, 1); }), -2);
    archive.Close();
    ASSERT_EQ(file.GetLength(), 256u);
    for (int i = 0; i < stored; ++i)
        ASSERT_EQ(std::memcmp(file.GetBuffer() + 4 * i, &i, 4), 0);
}

TEST(CXArchiveTest, ExceptionsArePendingAndNameTheFile)
{
    const auto nameIn = [](const Bytes& bytes, unsigned mode, const std::function<void(CXArchive&)>& call) {
        CXMemFile file(bytes.data(), bytes.size(), false);
        file.SetFilePath(L"stored.bin");
        CXArchive archive(&file, mode);
        try
        {
            call(archive);
        }
        catch (CXArchiveException* exception)
        {
            EXPECT_EQ(XTakeThreadException(), exception);
            CXTString<wchar_t> name = exception->GetFileName();
            exception->Delete();
            return name;
        }
        return CXTString<wchar_t>(L"nothing thrown");
    };
    const auto readObject = [](CXArchive& archive) { archive.ReadObject(nullptr); };
    char byte;
    EXPECT_EQ(nameIn({}, xArchiveLoad, [](CXArchive& archive) { archive << 1; }), L"stored.bin");
    EXPECT_EQ(nameIn({}, xArchiveStore, [&](CXArchive& archive) { archive >> byte; }), L"stored.bin");
    EXPECT_EQ(nameIn({5, 0}, xArchiveLoad, readObject), L"stored.bin");
    EXPECT_EQ(nameIn(Bytes{0xFF, 0xFF, 1, 0, 1, 0} + "?", xArchiveLoad, readObject), L"stored.bin");
    EXPECT_EQ(nameIn({}, xArchiveLoad, [&](CXArchive& archive) { archive >> byte; }), L"");
    EXPECT_EQ(nameIn({}, xArchiveLoad, [&](CXArchive& archive) { archive.EnsureRead(&byte, 1); }), L"");
}

TEST(CXArchiveTest, DirectionAndEndAreChecked)
{
    EXPECT_EQ(CauseOf([] { CXArchive archive(nullptr, xArchiveStore); }), -2);
    char byte = 0;
    CXTString<wchar_t> text;
    CXObject* object = nullptr;
    for (const Way& way : kWays)
    {
        Stream loading(way, xArchiveLoad, Bytes(100, 1));
        Stream storing(way, xArchiveStore);
        EXPECT_EQ(CauseOf([&] { *loading << 'x'; }), archiveReadOnly);
        EXPECT_EQ(CauseOf([&] { *loading << L'\U0001F600'; }), archiveReadOnly);
        EXPECT_EQ(CauseOf([&] { loading->Write(nullptr, 0); }), archiveReadOnly);
        EXPECT_EQ(CauseOf([&] { loading->WriteObject(nullptr); }), archiveReadOnly);
        EXPECT_EQ(CauseOf([&] { loading->WriteClass(nullptr); }), archiveGeneric);
        EXPECT_EQ(CauseOf([&] { *storing >> byte; }), archiveWriteOnly);
        EXPECT_EQ(CauseOf([&] { storing->Read(nullptr, 0); }), archiveWriteOnly);
        EXPECT_EQ(CauseOf([&] { *storing >> text; }), archiveWriteOnly);
        EXPECT_EQ(CauseOf([&] { *storing >> object; }), archiveWriteOnly);
        EXPECT_EQ(CauseOf([&] { storing->ReadClass(nullptr, nullptr, nullptr); }), archiveGeneric);
        EXPECT_EQ(CauseOf([&] { storing->WriteClass(nullptr); }), archiveBadClass);
        EXPECT_EQ(CauseOf([&] { storing->WriteClass(Transient::GetThisRuntimeClassDescriptor()); }), archiveGeneric);
        *storing << 'x';
        for (Stream* stream : {&loading, &storing})
        {
            (*stream)->Close();
            (*stream)->Close();
            EXPECT_EQ((*stream)->GetFile(), nullptr);
            EXPECT_EQ(CauseOf([&] { **stream << 'x'; }), archiveGeneric);
            EXPECT_EQ(CauseOf([&] { **stream >> byte; }), archiveGeneric);
            EXPECT_EQ(CauseOf([&] { (*stream)->Write("x", 1); }), archiveGeneric);
            EXPECT_EQ(CauseOf([&] { (*stream)->Read(&byte, 1); }), archiveGeneric);
        }
        EXPECT_EQ(storing.File().GetLength(), 1u);
    }
}

TEST(CXArchiveTest, OnlyAFlushReachesTheFile)
{
    const struct
    {
        unsigned m_mode;
        bool m_abort;
        size_t m_length;
    } rows[] = {
        {xArchiveStore, false, 4}, {xArchiveStore | xArchiveNoFlushOnDelete, false, 0}, {xArchiveStore, true, 0}};
    for (const auto& row : rows)
    {
        UnlentFile file;
        {
            CXArchive archive(&file, row.m_mode);
            archive << 1;
            if (row.m_abort)
                archive.Abort();
        }
        EXPECT_EQ(file.GetLength(), row.m_length);
    }
    // A private buffer of the least size stands in for a caller's that is too small.
    unsigned char tiny[4] = {9, 9, 9, 9};
    UnlentFile file;
    CXArchive archive(&file, xArchiveStore, 0, tiny);
    for (unsigned i = 0; i < 128 / 4; ++i)
        archive << i;
    EXPECT_EQ(file.GetLength(), 0u);
    archive << 1;
    EXPECT_EQ(file.GetLength(), 128u);
    EXPECT_EQ(tiny[0], 9);
}

TEST(CXArchiveObjectTest, ObjectsAndClassesShareOneIndex)
{
    Node root;
    Leaf left;
    Leaf right;
    root.m_value = 1;
    root.m_left = &left;
    root.m_right = &right;
    left.m_value = 2;
    left.m_right = &root;
    right.m_left = &left;
    const Bytes expected = kNewNode + Bytes{1, 0, 0, 0}               // class 1, object 2
                           + kNewLeaf + Bytes{2, 0, 0, 0, 0, 0, 2, 0} // class 3, object 4: null and the root
                           + Bytes{3, 0x80, 0, 0, 0, 0, 4, 0, 0, 0}   // object 5 of class 3: left and null
                           + Bytes{2, 0, 0, 0, 1, 0x80};
    for (const Way& way : kWays)
    {
        const Bytes bytes = Stored(
            [&](CXArchive& archive) {
                archive << &root << &root << static_cast<const CXObject*>(nullptr);
                archive.SerializeClass(kNode);
            },
            way);
        ASSERT_EQ(bytes, expected);

        Stream stream(way, xArchiveLoad, bytes);
        auto* loaded = dynamic_cast<Node*>(stream->ReadObject(kNode));
        ASSERT_NE(loaded, nullptr);
        auto* loadedLeft = dynamic_cast<Leaf*>(loaded->m_left);
        auto* loadedRight = dynamic_cast<Leaf*>(loaded->m_right);
        ASSERT_TRUE(loadedLeft != nullptr && loadedRight != nullptr);
        EXPECT_EQ(loadedLeft->m_value, 2);
        EXPECT_EQ(loadedLeft->m_right, loaded);
        EXPECT_EQ(loadedRight->m_left, loadedLeft);
        const CXObject* again = nullptr;
        CXObject* null = loaded;
        *stream >> again >> null;
        EXPECT_EQ(again, loaded);
        EXPECT_EQ(null, nullptr);
        stream->SerializeClass(kNode);
        EXPECT_EQ(stream->GetCreatedObjects(), (std::vector<CXObject*>{loaded, loadedLeft, loadedRight}));
        DeleteCreated(*stream);
    }
}

TEST(CXArchiveObjectTest, LargeIndicesTakeTheLongForm)
{
    // Class 1, then objects 2 to 0x8001; the last ones and the class are referred to again.
    std::vector<Leaf> leaves(0x8000);
    const Bytes bytes = Stored([&](CXArchive& archive) {
        for (Leaf& leaf : leaves)
            archive << &leaf;
        Node late;
        archive << &leaves[0x7FFE - 2] << &leaves[0x7FFF - 2] << &leaves[0x8000 - 2] << &late;
        archive.WriteClass(kNode);
    });
    const Bytes tail = Bytes{0xFE, 0x7F, 0xFF, 0x7F, 0xFF, 0x7F, 0, 0, 0xFF, 0x7F, 0x00, 0x80, 0, 0} + kNewNode +
                       kNoLinks + kNoLinks + Bytes{0xFF, 0x7F, 0x02, 0x80, 0, 0x80};
    ASSERT_EQ(Bytes(bytes.end() - static_cast<std::ptrdiff_t>(tail.size()), bytes.end()), tail);

    Stream stream(kWays[3], xArchiveLoad, bytes);
    std::vector<CXObject*> loaded;
    for (size_t i = 0; i < leaves.size(); ++i)
        loaded.push_back(stream->ReadObject(kLeaf));
    for (const size_t index : {0x7FFE, 0x7FFF, 0x8000})
        EXPECT_EQ(stream->ReadObject(kLeaf), loaded[index - 2]);
    EXPECT_NE(stream->ReadObject(kNode), nullptr);
    EXPECT_EQ(stream->ReadClass(kNode, nullptr, nullptr), kNode);
    DeleteCreated(*stream);
}

TEST(CXArchiveObjectTest, SchemaNumbersDecideWhatIsRead)
{
    const Bytes older = Bytes{0xFF, 0xFF, 2, 0, 9, 0} + "Versioned" + Bytes{5, 0, 0, 0} + kNewNode + Bytes{6, 0, 0, 0} +
                        kNoLinks + Bytes{0, 0};
    Stream stream(kWays[0], xArchiveLoad, older);
    EXPECT_EQ(stream->GetObjectSchema(), 0xFFFFFFFFu);
    auto* versioned = static_cast<Versioned*>(stream->ReadObject(nullptr));
    EXPECT_EQ(versioned->m_schemaBefore, 2u);
    EXPECT_EQ(versioned->m_schemaAfter, 3u) << "a nested object's schema stays in force behind it";
    EXPECT_EQ(static_cast<Node*>(versioned->m_left)->m_schemaBefore, 3u);
    EXPECT_EQ(stream->GetObjectSchema(), 2u);
    DeleteCreated(*stream);

    const auto read = [](CXArchive& archive) { archive.ReadObject(nullptr); };
    EXPECT_EQ(CauseOfReading(Bytes{0xFF, 0xFF, 2, 0, 4, 0} + "Node", read), archiveBadSchema);
    EXPECT_EQ(CauseOfReading(Bytes{0xFF, 0xFF, 1, 0, 7, 0} + "Unknown", read), archiveBadClass);
    EXPECT_EQ(CauseOfReading(Bytes{0xFF, 0xFF, 1, 0, 0xFF, 0xFF} + Bytes(0xFFFF, 'x'), read), archiveBadClass);
    EXPECT_EQ(CauseOfReading(Bytes{0xFF, 0xFF, 1, 0, 0xFF, 0xFF} + "x", read), archiveEndOfFile);
    Abstract abstract;
    EXPECT_EQ(CauseOfReading(Stored([&](CXArchive& archive) { archive << &abstract; }), read), -3);

    // The longest name, and one that has no form.
    std::string name(0xFFFF, 'n');
    const CXRuntimeClass longest = {name.c_str(), 0, 0x20010002, nullptr, nullptr};
    EXPECT_EQ(Stored([&](CXArchive& archive) { archive.WriteClass(&longest); }),
              (Bytes{0xFF, 0xFF, 2, 0, 0xFF, 0xFF} + name.c_str()));
    name += 'n';
    const CXRuntimeClass tooLong = {name.c_str(), 0, 1, nullptr, nullptr};
    EXPECT_EQ(CauseOf([&] { Stored([&](CXArchive& archive) { archive.WriteClass(&tooLong); }); }), archiveGeneric);
}

TEST(CXArchiveObjectTest, ClassesAreReadWithSchemaAndReference)
{
    const Bytes versioned = Bytes{0xFF, 0xFF, 2, 0, 9, 0} + "Versioned";
    Stream stream(kWays[0], xArchiveLoad,
                  versioned + Bytes{1, 0x80, 0xFF, 0x7F, 1, 0, 0, 0x80, 9, 0, 0xFF, 0x7F, 0, 0, 1, 0});
    const struct
    {
        bool m_isClass;
        unsigned m_schema;
        unsigned m_tag;
    } rows[] = {
        {true, 2, 0x80007FFF}, {true, 2, 0x80000001}, {true, 2, 0x80000001}, {false, 99, 9}, {false, 99, 0x10000}};
    for (const auto& row : rows)
    {
        unsigned schema = 99;
        unsigned tag = 99;
        const CXRuntimeClass* const type = stream->ReadClass(kNode, &schema, &tag);
        EXPECT_EQ(type, row.m_isClass ? Versioned::GetThisRuntimeClassDescriptor() : nullptr);
        EXPECT_EQ(schema, row.m_schema);
        EXPECT_EQ(tag, row.m_tag);
    }
}

TEST(CXArchiveObjectTest, AnObjectThatWasReadLeavesNoPendingException)
{
    Stream stream(kWays[0], xArchiveLoad, kNewNode + Bytes{Node::kSwallows, 0, 0, 0} + kNoLinks);
    const std::unique_ptr<CXObject> node(stream->ReadObject(kNode));
    EXPECT_EQ(XTakeThreadException(), nullptr);
}

TEST(CXArchiveObjectTest, ReferencesAreChecked)
{
    const auto any = [](CXArchive& archive) { archive.ReadObject(nullptr); };
    const auto leaf = [](CXArchive& archive) { archive.ReadObject(kLeaf); };
    const auto classOnly = [](CXArchive& archive) { archive.SerializeClass(nullptr); };
    // Each behind one node, so that 1 is its class and 2 the object.
    const Bytes node = kNewNode + kNoLinks + kNoLinks;
    const struct
    {
        Bytes m_reference;
        std::function<void(CXArchive&)> m_read;
        int m_lenient;
        int m_strict;
    } rows[] = {
        {{0, 0}, any, -1, -1},
        {{0, 0}, leaf, -1, -1},
        {{0, 0}, classOnly, archiveBadIndex, archiveBadIndex},
        {{2, 0}, any, -1, -1},
        {{2, 0}, leaf, archiveBadClass, archiveBadClass},
        {{2, 0}, classOnly, archiveBadIndex, archiveBadIndex},
        {{1, 0}, any, -1, archiveBadIndex}, // the class of schema 3 passes for an object
        {{1, 0}, leaf, archiveBadClass, archiveBadIndex},
        {{3, 0}, any, archiveBadIndex, archiveBadIndex},
        {{0xFF, 0x7F, 0xFF, 0xFF, 0xFF, 0x7F}, any, archiveBadIndex, archiveBadIndex},
        {{0, 0x80}, any, archiveBadIndex, archiveBadIndex},
        {{2, 0x80}, any, archiveBadIndex, archiveBadIndex},
        {{3, 0x80}, any, archiveBadIndex, archiveBadIndex},
        {{0xFF, 0x7F, 0xFF, 0xFF, 0xFF, 0xFF}, any, archiveBadIndex, archiveBadIndex},
        {{1, 0x80}, leaf, archiveBadClass, archiveBadClass},
        {{1, 0x80}, classOnly, -1, -1},
    };
    for (const auto& row : rows)
    {
        for (const unsigned mode : {xArchiveLoad, xArchiveLoad | xArchiveStrict})
        {
            Stream stream(kWays[0], mode, node + row.m_reference);
            const std::unique_ptr<CXObject> first(stream->ReadObject(nullptr));
            EXPECT_EQ(CauseOf([&] { row.m_read(*stream); }), mode == xArchiveLoad ? row.m_lenient : row.m_strict)
                << testing::PrintToString(row.m_reference);
        }
    }
    EXPECT_EQ(CauseOfReading({0, 0}, any), archiveBadIndex) << "no table yet";
    EXPECT_EQ(CauseOfReading({},
                             [](CXArchive& archive) {
                                 archive.ReadClass(Transient::GetThisRuntimeClassDescriptor(), nullptr, nullptr);
                             }),
              archiveGeneric);
    // What may not be stored is created by a lenient reader all the same.
    const Bytes transient = {0xFF, 0xFF, 1, 0, 9, 0, 'T', 'r', 'a', 'n', 's', 'i', 'e', 'n', 't'};
    const auto release = [](CXArchive& archive) { delete archive.ReadObject(nullptr); };
    EXPECT_EQ(CauseOfReading(transient, release), -1);
    Stream strict(kWays[0], xArchiveLoad | xArchiveStrict, transient);
    EXPECT_EQ(CauseOf([&] { release(*strict); }), archiveGeneric);
    // Even a lenient reader distinguishes a class of schema 1 from an object.
    Stream stream(kWays[0], xArchiveLoad, kNewLeaf + kNoLinks + kNoLinks + Bytes{1, 0});
    const std::unique_ptr<CXObject> first(stream->ReadObject(nullptr));
    EXPECT_EQ(CauseOf([&] { any(*stream); }), archiveBadIndex);
}

TEST(CXArchiveObjectTest, HostileNestingAndBudgetsEndInAnException)
{
    Bytes deep = kNewNode + kNoLinks;
    for (int i = 0; i < 20000; ++i)
        deep = std::move(deep) + Bytes{1, 0x80, 0, 0, 0, 0};
    const struct
    {
        const char* m_what;
        unsigned m_mode;
        std::function<void(CXArchive&)> m_limit;
        size_t m_created;
    } rows[] = {
        {"default", xArchiveLoad, [](CXArchive&) {}, 10000},
        {"nesting", xArchiveLoad, [](CXArchive& archive) { archive.SetNestingLimit(500); }, 500},
        {"depth", xArchiveLoad | xArchiveStrict, [](CXArchive& archive) { archive.SetBudget(1 << 20, 999, 300); }, 300},
        {"objects", xArchiveLoad | xArchiveStrict, [](CXArchive& archive) { archive.SetBudget(1 << 20, 200, 300); },
         200},
        // The new class and the first value take 14 bytes, each further object 6.
        {"bytes", xArchiveLoad | xArchiveStrict, [](CXArchive& archive) { archive.SetBudget(74, 999, 300); }, 11},
    };
    for (const auto& row : rows)
    {
        for (const Way& way : kWays)
        {
            Stream stream(way, row.m_mode, deep);
            row.m_limit(*stream);
            EXPECT_EQ(CauseOf([&] { stream->ReadObject(nullptr); }), archiveGeneric) << row.m_what;
            EXPECT_EQ(stream->GetCreatedObjects().size(), row.m_created) << row.m_what;
            DeleteCreated(*stream);
        }
    }
    Stream stream(kWays[0], xArchiveLoad, deep);
    stream->SetBudget(1, 1, 1);
    EXPECT_EQ(CauseOf([&] {
                  stream->SetNestingLimit(10);
                  stream->ReadObject(nullptr);
              }),
              archiveGeneric);
    EXPECT_EQ(stream->GetCreatedObjects().size(), 10u) << "budgets are for strict archives";
    DeleteCreated(*stream);

    // What a flush gives back to the file is not taken from the budget twice.
    for (const Way& way : kWays)
    {
        for (const auto& [bytes, cause] : {std::pair(99ull, archiveGeneric), std::pair(~0ull, archiveEndOfFile)})
        {
            Stream budgeted(way, xArchiveLoad | xArchiveStrict, Bytes(100, 1));
            char byte;
            *budgeted >> byte;
            budgeted->SetBudget(bytes, 1, 1);
            for (int i = 1; i < 100; ++i)
            {
                *budgeted >> byte;
                budgeted->Flush();
            }
            EXPECT_EQ(CauseOf([&] { *budgeted >> byte; }), cause);
        }
    }
}

TEST(CXArchiveObjectTest, TruncationAtEveryByteFailsAndLosesNothing)
{
    Node root;
    Leaf leaf;
    root.m_left = &leaf;
    const Bytes whole = Stored([&](CXArchive& archive) { archive << &root << &leaf; });
    for (size_t length = 0; length < whole.size(); ++length)
    {
        for (const Way& way : kWays)
        {
            Stream stream(way, xArchiveLoad, Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)));
            EXPECT_EQ(CauseOf([&] { stream->ReadObject(nullptr), stream->ReadObject(nullptr); }), archiveEndOfFile)
                << length;
            DeleteCreated(*stream);
        }
    }
}

TEST(CXArchiveTest, RandomSequencesComeBack)
{
    const unsigned seed = 90125;
    SCOPED_TRACE(seed);
    for (const Way& way : kWays)
    {
        std::mt19937_64 random(seed);
        std::vector<std::function<void(CXArchive&)>> writes;
        std::vector<std::function<bool(CXArchive&)>> reads;
        for (int i = 0; i < 2000; ++i)
        {
            const unsigned __int64 value = random();
            switch (value % 5)
            {
            case 0:
                writes.push_back([=](CXArchive& a) { a << value; });
                reads.push_back([=](CXArchive& a) {
                    unsigned __int64 v;
                    a >> v;
                    return v == value;
                });
                break;
            case 1:
                writes.push_back([=](CXArchive& a) { a << static_cast<short>(value); });
                reads.push_back([=](CXArchive& a) {
                    short v;
                    a >> v;
                    return v == static_cast<short>(value);
                });
                break;
            case 2: {
                Bytes block(value / 5 % 900, static_cast<unsigned char>(value >> 32));
                writes.push_back([=](CXArchive& a) { a.Write(block.data(), block.size()); });
                reads.push_back([=](CXArchive& a) {
                    Bytes v(block.size());
                    a.EnsureRead(v.data(), v.size());
                    return v == block;
                });
                break;
            }
            case 3: {
                const CXTString<wchar_t> text(static_cast<wchar_t>(1 + value / 5 % 0xD7FF),
                                              static_cast<int>(value >> 32 & 0xFF));
                writes.push_back([=](CXArchive& a) { a << text; });
                reads.push_back([=](CXArchive& a) {
                    CXTString<wchar_t> v;
                    a >> v;
                    return v == text;
                });
                break;
            }
            default:
                writes.push_back([=](CXArchive& a) { a.WriteCount(value >> (value & 63)); });
                reads.push_back([=](CXArchive& a) { return a.ReadCount() == value >> (value & 63); });
            }
        }
        const Bytes bytes = Stored(
            [&](CXArchive& archive) {
                for (const auto& write : writes)
                    write(archive);
            },
            way);
        Stream stream(way, xArchiveLoad, bytes);
        for (size_t i = 0; i < reads.size(); ++i)
            ASSERT_TRUE(reads[i](*stream)) << i;
    }
}
} // namespace
