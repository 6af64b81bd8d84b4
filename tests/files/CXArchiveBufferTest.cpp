#include "files/CXArchive.h"

#include "tests/support/ArchiveStream.h"
#include "tests/support/PrintText.h"

namespace
{
using namespace tev::test;

TEST(CXArchiveBufferTest, EverythingMayStraddleTheBuffer)
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
        const Bytes expected = StoredBy(write, kWays[0]);
        for (const Way& way : kWays)
        {
            ASSERT_EQ(StoredBy(write, way), expected) << offset;
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

TEST(CXArchiveBufferTest, ReadDeliversWhatThereIs)
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

TEST(CXArchiveBufferTest, FlushMovesTheFileToTheArchivesPosition)
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

// Cannot seek, which it reports as a file of the system does, or throws.
class PipeLikeFile : public BufferedMemFile
{
public:
    explicit PipeLikeFile(bool throws) : m_throws(throws) {}
    unsigned __int64 Seek(__int64, SeekPosition) override
    {
        if (m_throws)
            CXFileException::Throw(fileBadSeek, GetFilePath());
        return ~0ull;
    }
    void Rewind() { CXMemFile::Seek(0, begin); }

private:
    bool m_throws;
};

TEST(CXArchiveBufferTest, AFileThatCannotSeekLosesNothingByAFlush)
{
    for (const bool throws : {false, true})
    {
        PipeLikeFile file(throws);
        for (unsigned char byte = 1; byte <= 200; ++byte)
            file.Write(&byte, 1);
        file.Rewind();
        CXArchive archive(&file, xArchiveLoad, 128);
        archive.SetBudget(200, 1, 1);
        for (int i = 1; i <= 100; ++i)
        {
            unsigned char byte = 0;
            archive >> byte;
            EXPECT_EQ(byte, i);
            EXPECT_EQ(Thrown([&] { archive.Flush(); }), throws ? int(fileBadSeek) : kNothingThrown);
        }
        Bytes rest(200);
        EXPECT_EQ(archive.Read(rest.data(), 200), 100u); // what was not given back is not budgeted twice
        EXPECT_EQ(rest[99], 200);
        file.Rewind();
        CXArchive closed(&file, xArchiveLoad);
        closed >> rest[0];
        EXPECT_EQ(Thrown([&] { closed.Close(); }), kNothingThrown);
        EXPECT_EQ(closed.GetFile(), nullptr);
    }
}

TEST(CXArchiveBufferTest, ABudgetHoldsForWhatIsInTheBufferAndALargerOneGoesOnThere)
{
    PipeLikeFile silent(false);
    PipeLikeFile throwing(true);
    BufferedMemFile seeking;
    CXMemFile exposing;
    for (CXMemFile* const file : std::initializer_list<CXMemFile*>{&silent, &throwing, &seeking, &exposing})
    {
        for (unsigned char byte = 1; byte <= 200; ++byte)
            file->Write(&byte, 1);
        file->CXMemFile::Seek(0, CXFile::begin);
        CXArchive archive(file, xArchiveLoad, 128);
        unsigned char last = 0;
        archive >> last;
        Bytes block(2000);
        for (const unsigned budget : {10u, 0u, 3u, 130u, 1000u})
        {
            SCOPED_TRACE(budget);
            archive.SetBudget(budget, 1, 1);
            for (unsigned left = std::min(budget, 200u - last); left != 0; --left)
            {
                unsigned char byte = 0;
                ASSERT_EQ(CauseOf([&] { archive >> byte; }), kNothingThrown);
                ASSERT_EQ(byte, ++last);
            }
            const int cause = last < 200 ? archiveGeneric : archiveEndOfFile;
            EXPECT_EQ(CauseOf([&] { archive >> block[0]; }), cause);
            EXPECT_EQ(CauseOf([&] { archive.EnsureRead(block.data(), 1 + budget); }), cause);
            EXPECT_EQ(CauseOf([&] { archive.ReadCount(); }), cause);
        }
        file->CXMemFile::Seek(0, CXFile::begin);
        CXArchive second(file, xArchiveLoad, 128);
        second >> last;
        second.SetBudget(5, 1, 1);
        EXPECT_EQ(CauseOf([&] { second.EnsureRead(block.data(), 6); }), archiveGeneric);
        second.SetBudget(150, 1, 1);
        EXPECT_EQ(second.Read(block.data(), 150), 150u);
        EXPECT_EQ(block[0], 7);
        EXPECT_EQ(block[149], 156);
        EXPECT_EQ(CauseOf([&] { second >> last; }), archiveGeneric);
        second.Close();
        if (file == &seeking || file == &exposing)
        {
            EXPECT_EQ(file->GetPosition(), 156u);
        }
    }
}

TEST(CXArchiveBufferTest, ABudgetRefusesOnlyWhatTheFileHolds)
{
    for (const unsigned mode : {xArchiveLoad, xArchiveLoad | xArchiveStrict})
    {
        for (const Way& way : kWays)
        {
            for (const unsigned size : {0u, 100u, 300u})
            {
                for (const unsigned budget : {0u, 99u, 100u, 101u, 299u, 300u, 5000u})
                {
                    Stream stream(way, mode, Bytes(size, 1));
                    stream->SetBudget(budget, 1, 1);
                    Bytes target(4096);
                    unsigned __int64 read = 0;
                    const int cause = CauseOf([&] { read = stream->Read(target.data(), 4096); });
                    EXPECT_EQ(cause, budget < size ? int(archiveGeneric) : kNothingThrown) << size << ", " << budget;
                    EXPECT_EQ(read, budget < size ? 0 : size);
                    EXPECT_EQ(CauseOf([&] { *stream >> target[0]; }),
                              budget < size ? archiveGeneric : archiveEndOfFile);
                }
            }
        }
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

TEST(CXArchiveBufferTest, ScalarsGoOnBehindAFileThatFailedOnce)
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

TEST(CXArchiveBufferTest, OnlyCloseTellsWhatCouldNotBeWritten)
{
    for (const bool exposes : {false, true})
    {
        FaultyFile file(exposes);
        CXArchive archive(&file, xArchiveStore);
        archive << 1;
        file.m_broken = true;
        EXPECT_EQ(Thrown([&] { archive.Close(); }), fileHardIO);
        EXPECT_EQ(archive.GetFile(), &file);
    } // and the destructor, which tries once more, lets nothing out
    EXPECT_EQ(XTakeThreadException(), nullptr);
}

TEST(CXArchiveBufferTest, AFinalFlushIsNotWrittenOver)
{
    for (const Way& way : kWays)
    {
        const Bytes bytes = StoredBy(
            [](CXArchive& archive) {
                archive << 'a';
                archive.Flush(true);
                archive << 'b';
            },
            way);
        EXPECT_EQ(bytes, (Bytes{'a', 'b'}));
    }
}

TEST(CXArchiveBufferTest, AMemoryFileThatCannotGrowIsNotOverrun)
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

TEST(CXArchiveBufferTest, OnlyAFlushReachesTheFile)
{
    const std::tuple<unsigned, bool, size_t> rows[] = {
        {xArchiveStore, false, 4}, {xArchiveStore | xArchiveNoFlushOnDelete, false, 0}, {xArchiveStore, true, 0}};
    for (const auto& [mode, abort, length] : rows)
    {
        BufferedMemFile file;
        {
            CXArchive archive(&file, mode);
            archive << 1;
            if (abort)
                archive.Abort();
        }
        EXPECT_EQ(file.GetLength(), length);
    }
    // A private buffer of the least size stands in for a caller's that is too small.
    unsigned char tiny[4] = {9, 9, 9, 9};
    BufferedMemFile file;
    CXArchive archive(&file, xArchiveStore, 0, tiny);
    for (unsigned i = 0; i < 128 / 4; ++i)
        archive << i;
    EXPECT_EQ(file.GetLength(), 0u);
    archive << 1;
    EXPECT_EQ(file.GetLength(), 128u);
    EXPECT_EQ(tiny[0], 9);
}

TEST(CXArchiveBufferTest, RandomSequencesComeBack)
{
    const unsigned seed = 90125;
    SCOPED_TRACE(seed);
    for (const Way& way : kWays)
    {
        std::mt19937_64 random(seed);
        std::vector<std::function<void(CXArchive&)>> writes;
        std::vector<std::function<bool(CXArchive&)>> reads;
        const auto add = [&](const auto& value) {
            writes.push_back([=](CXArchive& archive) { archive << value; });
            reads.push_back([=](CXArchive& archive) {
                std::decay_t<decltype(value)> read{};
                archive >> read;
                return read == value;
            });
        };
        for (int i = 0; i < 2000; ++i)
        {
            const unsigned __int64 value = random();
            switch (value % 5)
            {
            case 0:
                add(value);
                break;
            case 1:
                add(static_cast<short>(value));
                break;
            case 2: {
                const Bytes block(value / 5 % 900, static_cast<unsigned char>(value >> 32));
                writes.push_back([=](CXArchive& archive) { archive.Write(block.data(), block.size()); });
                reads.push_back([=](CXArchive& archive) {
                    Bytes read(block.size());
                    archive.EnsureRead(read.data(), read.size());
                    return read == block;
                });
                break;
            }
            case 3:
                add(CXTString<wchar_t>(static_cast<wchar_t>(1 + value / 5 % 0xD7FF),
                                       static_cast<int>(value >> 32 & 0xFF)));
                break;
            default:
                writes.push_back([=](CXArchive& archive) { archive.WriteCount(value >> (value & 63)); });
                reads.push_back([=](CXArchive& archive) { return archive.ReadCount() == value >> (value & 63); });
            }
        }
        const Bytes bytes = StoredBy(
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
