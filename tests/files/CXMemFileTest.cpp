#include "files/CXMemFile.h"

#include "tests/support/FileFailure.h"
#include "tests/support/OnThreads.h"

namespace
{
using namespace tev::test;

using Size = unsigned __int64;
constexpr Size kLargest = ~0ull;

unsigned char* NewBlock(const std::string& bytes)
{
    unsigned char* const block = CXMemFile::Alloc(bytes.size());
    std::copy(bytes.begin(), bytes.end(), block);
    return block;
}

const unsigned char* Bytes(const std::string& text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

/// A memory file whose inside can be seen. Realloc always moves the block and brings rubbish, or finds no memory.
template <class File>
class Visible : public File
{
public:
    using File::BufferCommand;
    using File::File;
    using File::GrowBuffer;
    using File::m_autoDelete;
    using File::m_buffer;
    using File::m_capacity;
    using File::m_growBytes;

    std::string Contents() const { return std::string(m_buffer, m_buffer + File::GetLength()); }
    Size Expose(unsigned command, Size count) { return File::BufferCommand(command, count, &m_start, &m_stop); }

    unsigned char* m_start = nullptr; ///< what was exposed last
    unsigned char* m_stop = nullptr;
    unsigned m_reallocations = 0;
    bool m_outOfMemory = false;

protected:
    unsigned char* Realloc(unsigned char* block, Size size) override
    {
        ++m_reallocations;
        if (m_outOfMemory)
            return nullptr;
        unsigned char* const moved = NewBlock(std::string(block, block + m_capacity));
        File::Free(block);
        unsigned char* const larger = File::Realloc(moved, size);
        std::memset(larger + m_capacity, 0xCD, size - m_capacity);
        return larger;
    }
};
using MemFile = Visible<CXMemFile>;
using CustomMemFile = Visible<CCustomMemFile>;

/// Without a look at the block, which would clear it.
std::string ContentsOf(CXMemFile& file)
{
    return std::string(file.*&MemFile::m_buffer, file.*&MemFile::m_buffer + file.GetLength());
}

TEST(CXMemFile, GrowsByWholeStepsOrInProportion)
{
    const struct
    {
        unsigned flags; ///< bit 0: in proportion
        Size filled, step, needed, capacity, stepAfter;
    } cases[] = {{0, 0, 0, 1, 2048, 2048},
                 {0, 0, 0, 2048, 2048, 2048},
                 {0, 2048, 0, 10000, 10240, 2048},
                 {0, 300, 100, 300, 300, 100},
                 {2, 300, 100, 501, 600, 100},
                 {0, 0, 1, 1u << 30, 1u << 30, 1},
                 {1, 10000, 2048, 10000, 10000, 2048},
                 {1, 10000, 2048, 10001, 16000, 6000},
                 {1, 10000, 2048, 16001, 16001, 6001},
                 {1, 3000, 0, 3001, 5048, 2048},
                 {1, 0, 0, 5, 2048, 2048},
                 {1, 0, 0, 5000, 5000, 5000}};
    for (const auto& c : cases)
    {
        SCOPED_TRACE(testing::Message() << c.filled << " to " << c.needed);
        CustomMemFile file(NewBlock(std::string(c.filled, 'x')), c.filled, true, c.flags);
        EXPECT_EQ(file.m_growBytes, 2048u);
        file.m_growBytes = c.step;
        EXPECT_TRUE(file.GrowBuffer(c.needed));
        EXPECT_EQ(file.m_capacity, c.capacity);
        EXPECT_EQ(file.m_growBytes, c.stepAfter);
        EXPECT_EQ(file.Contents(), std::string(c.filled, 'x'));
    }
    CustomMemFile file(CCustomMemFile::growProportionally);
    for (int i = 0; i < 1000000; ++i)
        file.Write("x", 1);
    EXPECT_LT(file.m_reallocations, 20u);
}

TEST(CXMemFile, StaysAsItIsWithoutMemory)
{
    for (const bool throws : {true, false})
    {
        const int memory = throws ? kNoMemory : kNothingThrown;
        MemFile file(4, throws);
        EXPECT_EQ(Thrown([&] { EXPECT_FALSE(file.GrowBuffer(1ull << 62)); }), memory);
        EXPECT_EQ(Thrown([&] { EXPECT_FALSE(file.GrowBuffer(kLargest)); }), memory); // no whole step reaches it
        file.Write("abcd", 4);
        file.Seek(2, CXFile::begin);
        file.m_outOfMemory = true;
        EXPECT_EQ(Thrown([&] { file.Write("12345", 5); }), memory);
        EXPECT_EQ(Thrown([&] { EXPECT_EQ(file.Seek(5, CXFile::begin), 2u); }), memory);
        EXPECT_EQ(Thrown([&] { EXPECT_FALSE(file.SetLength(5)); }), memory);
        EXPECT_EQ(Thrown([&] { EXPECT_EQ(file.Expose(CXFile::bufferWrite, 3), 0u); }), memory);
        EXPECT_EQ(Thrown([&] { file.Write(nullptr, 1); }), throws ? kInvalidArgument : kNothingThrown);
        EXPECT_EQ(file.GetPosition(), 2u);
        EXPECT_EQ(file.m_capacity, 4u);
        file.Write("CD", 2);
        file.Write(nullptr, 0);
        EXPECT_EQ(file.Contents(), "abCD");
    }
    CustomMemFile custom(CCustomMemFile::growProportionally, 16);
    custom.Write("x", 1);
    custom.m_outOfMemory = true;
    EXPECT_EQ(Thrown([&] { custom.GrowBuffer(1u << 30); }), kNoMemory);
    EXPECT_EQ(custom.m_growBytes, 16u); // or no small growth would succeed
}

TEST(CXMemFile, RefusesWhatItsCapacityDoesNotReach)
{
    class Liar : public MemFile
    {
    public:
        using MemFile::MemFile;
        Size m_asked = 0;

    protected:
        bool GrowBuffer(Size needed) override
        {
            m_asked = needed;
            return true;
        }
    };
    Liar quiet(Bytes("abcd"), 4, false, false);
    EXPECT_EQ(Thrown([&] { quiet.Write("12345", 5); }), kInvalidArgument);
    EXPECT_EQ(quiet.Expose(CXFile::bufferWrite, 9), 4u);
    EXPECT_EQ(quiet.Seek(5, CXFile::begin), 0u);
    EXPECT_FALSE(quiet.SetLength(0xFFFFFFFF));
    EXPECT_FALSE(quiet.SetLength(0x100000000));
    EXPECT_EQ(quiet.m_asked, 0xFFFFFFFFu) << "the longest";
    EXPECT_EQ(quiet.GetLength(), 4u);
    MemFile file;
    EXPECT_EQ(Thrown([&] { file.SetLength(0x100000000); }), kNoMemory);
}

TEST(CXMemFile, LeavesACallersBlockAlone)
{
    std::string block = "0123456789";
    MemFile file(Bytes(block), block.size(), false);
    EXPECT_FALSE(file.m_autoDelete);
    EXPECT_EQ(file.m_growBytes, 0u);
    EXPECT_EQ(file.m_capacity, 10u);
    file.Write("ab", 2);
    file.Seek(-1, CXFile::end);
    file.Write("XYZ", 3);
    EXPECT_EQ(block, "ab23456789"); // written in place as far as it reaches
    EXPECT_EQ(file.Contents(), "ab2345678XYZ");
    EXPECT_EQ(file.m_capacity, 10u + 2048u);
    EXPECT_EQ(file.m_reallocations, 0u);

    file.Attach(Bytes(block), 5, false);
    EXPECT_EQ(file.GetPosition(), 0u);
    EXPECT_EQ(file.Contents(), "ab234");
    EXPECT_EQ(file.Detach(), Bytes(block));
    EXPECT_EQ(file.GetLength(), 0u);
    file.Write("new", 3);
    EXPECT_EQ(file.Contents(), "new");
}

TEST(CXMemFile, TakesOverAndHandsOutBlocks)
{
    // Under the leak checker, each block must be freed exactly once.
    MemFile file(NewBlock("first"), 5, true);
    file.SeekToEnd();
    file.Write("!", 1);
    EXPECT_EQ(file.m_reallocations, 1u);
    file.Attach(NewBlock("second"), 6, true);
    file.Attach(file.GetBuffer(), 3, true);
    EXPECT_EQ(file.Contents(), "sec");
    unsigned char* const block = file.Detach();
    EXPECT_EQ(file.Detach(), nullptr);
    file.Attach(block, 3, true);
    file.Close();
    EXPECT_EQ(file.GetLength(), 0u);
    EXPECT_EQ(file.GetBuffer(), nullptr);
    file.Write("again", 5);
    file.Abort();
    EXPECT_EQ(file.m_capacity, 0u);
    CXMemFile::Free(nullptr);

    file.Write("kept", 4);
    EXPECT_EQ(Thrown([&] { file.Attach(nullptr, 1, true); }), kInvalidArgument);
    EXPECT_EQ(file.Contents(), "kept");
    EXPECT_EQ(Thrown([] { MemFile refused(nullptr, 1, false, true); }), kInvalidArgument);
    MemFile empty(nullptr, 1, true, false);
    EXPECT_EQ(empty.m_capacity, 0u);
    EXPECT_EQ(empty.GetLength(), 0u);
}

TEST(CXMemFile, SeeksByItsRules)
{
    constexpr int kStaysAt = 3;
    const struct
    {
        __int64 offset;
        unsigned origin;
        bool isBad;
        Size quietResult;
    } cases[] = {
        {7, CXFile::begin, false, 7},         {15, CXFile::begin, false, 15}, {4, CXFile::current, false, 7},
        {-3, CXFile::current, false, 0},      {0, CXFile::end, false, 10},    {-10, CXFile::end, false, 0},
        {1, CXFile::end, true, kStaysAt},     {-1, CXFile::begin, true, 0},   {-4, CXFile::current, true, 0},
        {-11, CXFile::end, true, 0},          {5, 3, false, kStaysAt},        {-5, 0xFFFFFFFF, false, kStaysAt},
        {-0x7FFFFFFFFFFFFFFF - 1, 0, true, 0}};
    for (const auto& c : cases)
    {
        for (const bool throws : {true, false})
        {
            SCOPED_TRACE(std::to_string(c.offset) + " from " + std::to_string(c.origin));
            MemFile file(8, throws);
            file.Write("0123456789", 10);
            file.Seek(kStaysAt, CXFile::begin);
            const auto seek = [&] { file.Seek(c.offset, static_cast<CXFile::SeekPosition>(c.origin)); };
            EXPECT_EQ(Thrown(seek), throws && c.isBad ? static_cast<int>(fileBadSeek) : kNothingThrown);
            EXPECT_EQ(file.GetPosition(), throws && c.isBad ? kStaysAt : c.quietResult);
            EXPECT_EQ(file.GetLength(), 10u);
            EXPECT_EQ(file.m_capacity, 16u);
        }
    }
}

TEST(CXMemFile, ExposesItsBlock)
{
    MemFile file(16);
    EXPECT_EQ(file.BufferCommand(CXFile::bufferCheck, 0, nullptr, nullptr), 1u);
    EXPECT_EQ(file.Expose(4, 1), 0u);
    EXPECT_EQ(file.Expose(CXFile::bufferRead, 5), 0u);
    EXPECT_EQ(file.Expose(CXFile::bufferWrite, 10), 10u);
    EXPECT_EQ(file.m_stop - file.m_start, 10);
    EXPECT_EQ(file.GetPosition(), 0u);
    std::memcpy(file.m_start, "0123456789", 10);
    EXPECT_EQ(file.BufferCommand(CXFile::bufferCommit, 10, nullptr, nullptr), 10u);
    EXPECT_EQ(file.GetPosition(), 10u);
    EXPECT_EQ(file.Contents(), "0123456789");

    const std::tuple<Size, Size, const char*> cases[] = {
        {0, 4, "0123"},       {8, 4, "89"}, {3, 0xFFFFFFFF, "3456789"},   {0, 0, ""},
        {10, 0xFFFFFFFF, ""}, {14, 1, ""},  {2, 0x100000000, "23456789"}, {6, kLargest - 6, "6789"}};
    for (const auto& [position, count, exposed] : cases)
    {
        SCOPED_TRACE(position);
        file.Seek(static_cast<__int64>(position), CXFile::begin);
        EXPECT_EQ(file.Expose(CXFile::bufferRead, count), std::strlen(exposed));
        EXPECT_EQ(std::string(file.m_start, file.m_stop), exposed);
        EXPECT_EQ(file.GetPosition(), position + std::strlen(exposed));
    }

    file.SeekToEnd();
    MemFile quiet(16, false);
    quiet.Write("x", 1);
    for (const CXFile::BufferCommands command : {CXFile::bufferRead, CXFile::bufferWrite, CXFile::bufferCommit})
    {
        EXPECT_EQ(Thrown([&] { file.Expose(command, kLargest); }), kInvalidArgument);
        EXPECT_EQ(quiet.Expose(command, kLargest), 0u);
        if (command == CXFile::bufferCommit)
            continue;
        EXPECT_EQ(file.BufferCommand(command, 1, nullptr, &file.m_stop), 0u);
        EXPECT_EQ(file.BufferCommand(command, 1, &file.m_start, nullptr), 0u);
    }
    EXPECT_EQ(Thrown([&] { file.Expose(CXFile::bufferCommit, 7); }), kInvalidArgument);
    EXPECT_EQ(file.Expose(CXFile::bufferCommit, 6), 6u);
    EXPECT_EQ(file.GetLength(), 16u);
}

TEST(CXMemFile, WritesFromItsOwnBlock)
{
    MemFile file(1);
    file.Write("abc", 3);
    file.Write(file.GetBuffer(), 3); // which moves
    EXPECT_EQ(file.Contents(), "abcabc");
    file.Seek(1, CXFile::begin);
    file.Write(file.GetBuffer(), 5); // overlapping
    EXPECT_EQ(file.Contents(), "aabcab");
}

TEST(CXMemFile, ForgetsWhatIsCutOff)
{
    const std::string rubbish(20, '?');
    MemFile written(10);
    written.Write(rubbish.data(), 20);
    MemFile attached(NewBlock(rubbish), 20, true);
    MemFile touched(20);
    touched.Write(rubbish.data(), 4);
    std::fill_n(touched.GetBuffer() + 4, 16, '?'); // through a pointer that the caller kept
    for (MemFile* file : {&written, &attached, &touched})
    {
        EXPECT_TRUE(file->SetLength(4) && file->SetLength(20));
        EXPECT_EQ(file->Contents(), "????" + std::string(16, '\0'));
    }
}

TEST(CXMemFile, HasNoPath)
{
    MemFile file;
    CXFileException error;
    EXPECT_FALSE(file.Open(L"/tmp", CXFile::modeRead, &error));
    EXPECT_EQ(error.GetCause(), fileInvalidFile);
    EXPECT_FALSE(file.Open(L"/tmp", CXFile::modeRead));
    file.Flush();
    EXPECT_EQ(file.GetFilePath(), L"");
}

/// The same file as a plain string: bytes that join it without being written are zero.
struct Model
{
    std::string bytes;
    std::size_t position = 0;

    void Write(const std::string& data)
    {
        bytes.resize(std::max(bytes.size(), position + data.size()));
        bytes.replace(position, data.size(), data);
        position += data.size();
    }
    std::string Read(std::size_t count)
    {
        const std::string data = position < bytes.size() ? bytes.substr(position, count) : std::string();
        position += data.size();
        return data;
    }
};

/// A file whose inside cannot be seen clears what it grew into only when somebody looks.
void CompareWithModel(CXMemFile&& file, const std::string& contents, unsigned seed)
{
    SCOPED_TRACE("seed " + std::to_string(seed));
    const bool isVisible = typeid(file) != typeid(CXMemFile) && typeid(file) != typeid(CCustomMemFile);
    const Size& capacity = file.*&MemFile::m_capacity;
    unsigned char *start = nullptr, *stop = nullptr;
    const auto expose = [&](unsigned command, Size count) {
        return (file.*&MemFile::BufferCommand)(command, count, &start, &stop);
    };
    Model model{contents};
    std::mt19937 random(seed);
    const auto below = [&random](std::size_t limit) { return random() % limit; };
    for (int step = 0; step < 3000; ++step)
    {
        SCOPED_TRACE(step);
        const std::size_t length = model.bytes.size();
        const std::size_t count = below(60);
        std::string data(count, static_cast<char>('a' + below(26)));
        switch (below(7))
        {
        case 0:
            if (count > 0)
                model.Write(data);
            file.Write(data.data(), static_cast<unsigned>(count));
            break;
        case 1:
            data.resize(file.Read(data.data(), static_cast<unsigned>(count)));
            ASSERT_EQ(data, model.Read(count));
            break;
        case 2:
            model.position = below(length + 60);
            file.Seek(static_cast<__int64>(model.position), CXFile::begin);
            break;
        case 3:
            model.bytes.resize(below(length + 30));
            model.position = std::min(model.position, model.bytes.size());
            ASSERT_TRUE(file.SetLength(model.bytes.size()));
            break;
        case 4: {
            const std::size_t room = count + below(20);
            const Size old = capacity;
            ASSERT_EQ(expose(CXFile::bufferWrite, room), room);
            for (unsigned char* grown = std::max(start, file.GetBuffer() + old); grown < stop; ++grown)
                ASSERT_EQ(*grown, 0);
            if (model.position >= length)
                std::fill(start, stop, '?'); // what is not committed must not join the file
            std::copy(data.begin(), data.end(), start);
            ASSERT_EQ(expose(CXFile::bufferCommit, count), count);
            model.Write(data);
            break;
        }
        case 5:
            expose(CXFile::bufferRead, count);
            ASSERT_EQ(std::string(start, stop), model.Read(count));
            break;
        default: {
            const Size old = capacity;
            (file.*&MemFile::GrowBuffer)(below(length + 200));
            const unsigned char* const block = isVisible ? file.*&MemFile::m_buffer : std::as_const(file).GetBuffer();
            ASSERT_EQ(std::count(block + old, block + capacity, 0), std::ptrdiff_t(capacity - old));
            break;
        }
        }
        ASSERT_EQ(file.GetPosition(), model.position);
        ASSERT_EQ(ContentsOf(file), model.bytes);
    }
}

/// Fills the memory that blocks of up to 16 KiB are made of next.
void LeaveRubbish()
{
    std::vector<std::unique_ptr<unsigned char[]>> blocks;
    for (std::size_t size = 16; size < 16384; size += 16)
    {
        blocks.emplace_back(new unsigned char[size]);
        std::memset(blocks.back().get(), 0xCD, size);
    }
}

TEST(CXMemFile, ShowsNothingOfTheMemoryThatItGrewInto)
{
    using Look = std::string (*)(CXMemFile & file, std::size_t size);
    static constexpr auto shown = [](const unsigned char* bytes, std::size_t size) {
        return std::string(bytes, bytes + size);
    };
    const Look looks[] = {
        [](CXMemFile& file, std::size_t size) { return shown(file.GetBuffer(), size); },
        [](CXMemFile& file, std::size_t size) {
            const std::unique_ptr<unsigned char, decltype(&CXMemFile::Free)> block(file.Detach(), &CXMemFile::Free);
            return shown(block.get(), size);
        },
        [](CXMemFile& file, std::size_t size) {
            unsigned char *start = nullptr, *stop = nullptr;
            (file.*&MemFile::BufferCommand)(CXFile::bufferWrite, size - file.GetPosition(), &start, &stop);
            return shown(stop - size, size);
        },
        [](CXMemFile& file, std::size_t size) {
            file.Seek(static_cast<__int64>(size), CXFile::begin);
            return shown(file.*&MemFile::m_buffer, size);
        },
        [](CXMemFile& file, std::size_t size) {
            std::string seen[2];
            OnThreads(2, [&](int thread) { seen[thread] = shown(std::as_const(file).GetBuffer(), size); });
            EXPECT_EQ(seen[0], seen[1]);
            return seen[0];
        },
        [](CXMemFile& file, std::size_t size) {
            file.SetLength(size);
            return ContentsOf(file);
        },
        [](CXMemFile& file, std::size_t size) {
            file.Seek(static_cast<__int64>(size - 1), CXFile::begin);
            file.Write("", 1);
            return ContentsOf(file);
        },
    };
    constexpr std::size_t kWritten = 5000;
    constexpr std::size_t kCapacity = 8000;
    for (const Look& look : looks)
    {
        SCOPED_TRACE(&look - looks);
        LeaveRubbish();
        CXMemFile file(kCapacity / 2);
        for (std::size_t written = 0; written < kWritten; ++written)
            file.Write("x", 1);
        EXPECT_EQ(look(file, kCapacity), std::string(kWritten, 'x') + std::string(kCapacity - kWritten, '\0'));
    }
}

TEST(CXMemFile, BehavesLikeAStringOfBytes)
{
    for (const unsigned step : {0u, 1u, 7u})
    {
        CompareWithModel(MemFile(step), "", 20240611 + step);
        LeaveRubbish();
        CompareWithModel(CXMemFile(step), "", 20240611 + step);
    }
    CompareWithModel(CustomMemFile(CCustomMemFile::growProportionally, 3), "", 20240611);
    LeaveRubbish();
    CompareWithModel(CCustomMemFile(CCustomMemFile::growProportionally, 3), "", 20240611);
    const std::string block(100, 'b');
    CompareWithModel(MemFile(Bytes(block), block.size(), false), block, 20240611);
}
} // namespace
