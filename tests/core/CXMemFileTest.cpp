#include "core/CXMemFile.h"

#include "core/CXFileException.h"
#include "tests/support/FileFailure.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace
{
using tev::test::kInvalidArgument;
using tev::test::kNoMemory;
using tev::test::kNothingThrown;
using tev::test::Thrown;

using Size = unsigned __int64;
constexpr Size kLargest = ~0ull;

/// A memory file whose inside can be seen. New memory that comes from Realloc is full of rubbish, or does not come.
template <class File>
class Visible : public File
{
public:
    using File::BufferCommand;
    using File::File;
    using File::GrowBuffer;

    Size Capacity() const { return this->m_capacity; }
    Size GrowBytes() const { return this->m_growBytes; }
    bool OwnsBlock() const { return this->m_autoDelete; }
    std::string Contents() const
    {
        const CXMemFile& file = *this;
        return std::string(reinterpret_cast<const char*>(file.GetBuffer()), file.GetLength());
    }

    unsigned m_reallocations = 0;
    bool m_outOfMemory = false;

protected:
    unsigned char* Realloc(unsigned char* block, Size size) override
    {
        ++m_reallocations;
        unsigned char* const larger = m_outOfMemory ? nullptr : File::Realloc(block, size);
        if (larger != nullptr)
            std::memset(larger + this->m_capacity, 0xCD, size - this->m_capacity);
        return larger;
    }
};
using MemFile = Visible<CXMemFile>;
using CustomMemFile = Visible<CCustomMemFile>;

unsigned char* NewBlock(const std::string& bytes)
{
    unsigned char* const block = CXMemFile::Alloc(bytes.size());
    std::memcpy(block, bytes.data(), bytes.size());
    return block;
}

const unsigned char* Bytes(const std::string& text)
{
    return reinterpret_cast<const unsigned char*>(text.data());
}

TEST(CXMemFile, GrowsByWholeSteps)
{
    const struct
    {
        unsigned step;
        Size filled; ///< reached first
        Size needed;
        Size capacity;
    } cases[] = {
        {0, 0, 1, 2048},
        {0, 0, 2048, 2048},
        {0, 0, 2049, 4096},
        {0, 2048, 10000, 10240},
        {100, 0, 250, 300},
        {100, 300, 301, 400},
        {7, 0, 7, 7},
        {7, 7, 8, 14},
        {1, 0, 1000, 1000},
        {1, 1000, 1001, 1001},
        {1, 0, 1u << 30, 1u << 30},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.needed);
        MemFile file(c.step);
        EXPECT_TRUE(file.GrowBuffer(c.filled));
        EXPECT_TRUE(file.GrowBuffer(c.needed));
        EXPECT_EQ(file.Capacity(), c.capacity);
        EXPECT_EQ(file.GetLength(), 0u);
        EXPECT_EQ(file.GrowBytes(), c.step == 0 ? 2048 : c.step);
        EXPECT_TRUE(file.GrowBuffer(1));
        EXPECT_EQ(file.Capacity(), c.capacity);
    }
}

TEST(CXMemFile, GrowsInProportionWhenAsked)
{
    const struct
    {
        unsigned flags;
        Size filled;
        Size needed;
        Size capacity;
        Size step;
    } cases[] = {
        {CCustomMemFile::growProportionally, 10000, 10001, 16000, 6000},
        {CCustomMemFile::growProportionally, 10000, 16001, 16001, 6001}, // the product is too small
        {CCustomMemFile::growProportionally, 3000, 3001, 5048, 2048},    // 1800 is less than the step
        {CCustomMemFile::growProportionally, 0, 5, 2048, 2048},
        {CCustomMemFile::growProportionally, 0, 5000, 5000, 5000},
        {0, 10000, 10001, 12048, 2048},
        {2, 10000, 10001, 12048, 2048},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.needed);
        CustomMemFile file(NewBlock(std::string(c.filled, 'x')), c.filled, true, c.flags);
        EXPECT_TRUE(file.GrowBuffer(c.needed));
        EXPECT_EQ(file.Capacity(), c.capacity);
        EXPECT_EQ(file.GrowBytes(), c.step);
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
        MemFile file(4, throws);
        file.Write("abcd", 4);
        file.Seek(2, CXFile::begin);
        file.m_outOfMemory = true;
        unsigned char* start = nullptr;
        unsigned char* stop = nullptr;
        const int memory = throws ? kNoMemory : kNothingThrown;
        const int argument = throws ? kInvalidArgument : kNothingThrown;
        EXPECT_EQ(Thrown([&] { file.Write("12345", 5); }), memory);
        EXPECT_EQ(Thrown([&] { EXPECT_EQ(file.Seek(5, CXFile::begin), 2u); }), memory);
        EXPECT_EQ(Thrown([&] { EXPECT_FALSE(file.SetLength(5)); }), memory);
        EXPECT_EQ(Thrown([&] { EXPECT_EQ(file.BufferCommand(CXFile::bufferWrite, 3, &start, &stop), 0u); }), memory);
        EXPECT_EQ(Thrown([&] { EXPECT_FALSE(file.GrowBuffer(kLargest)); }), memory); // no whole step reaches it
        EXPECT_EQ(Thrown([&] { EXPECT_FALSE(file.SetLength(0x100000000)); }), memory);
        EXPECT_EQ(Thrown([&] { file.Write(nullptr, 1); }), argument);
        EXPECT_EQ(file.Contents(), "abcd");
        EXPECT_EQ(file.GetPosition(), 2u);
        EXPECT_EQ(file.Capacity(), 4u);
        file.Write("CD", 2);
        file.Write(nullptr, 0);
        EXPECT_EQ(file.Contents(), "abCD");
    }
}

TEST(CXMemFile, RefusesToWritePastACapacityThatDidNotGrow)
{
    class Liar : public CXMemFile
    {
    public:
        using CXMemFile::BufferCommand;
        using CXMemFile::CXMemFile;

    protected:
        bool GrowBuffer(Size) override { return true; }
    };
    std::string block = "abcd";
    Liar file(Bytes(block), block.size(), false, false);
    unsigned char* start = nullptr;
    unsigned char* stop = nullptr;
    EXPECT_EQ(Thrown([&] { file.Write("12345", 5); }), kInvalidArgument);
    EXPECT_EQ(file.BufferCommand(CXFile::bufferWrite, 9, &start, &stop), 4u);
    EXPECT_EQ(file.Seek(5, CXFile::begin), 0u);
    EXPECT_FALSE(file.SetLength(5));
    EXPECT_EQ(file.GetLength(), 4u);
}

TEST(CXMemFile, LeavesACallersBlockAlone)
{
    std::string block = "0123456789";
    MemFile file(Bytes(block), block.size(), false);
    EXPECT_FALSE(file.OwnsBlock());
    EXPECT_EQ(file.GetLength(), 10u);
    file.Write("ab", 2);
    EXPECT_EQ(block, "ab23456789"); // written in place as far as it reaches
    file.Seek(-1, CXFile::end);
    file.Write("XYZ", 3);
    EXPECT_EQ(block, "ab23456789");
    EXPECT_EQ(file.Contents(), "ab2345678XYZ");
    EXPECT_EQ(file.Capacity(), 10u + 2048u);
    EXPECT_EQ(file.m_reallocations, 0u);
    EXPECT_TRUE(file.OwnsBlock());
    EXPECT_EQ(file.GetBuffer()[2000], 0);

    file.Attach(Bytes(block), 5, false);
    EXPECT_EQ(file.GetPosition(), 0u);
    EXPECT_EQ(file.Contents(), "ab234");
    EXPECT_EQ(file.Detach(), Bytes(block));
    EXPECT_EQ(file.GetLength(), 0u);
    file.Write("new", 3);
    EXPECT_EQ(file.Contents(), "new");
    EXPECT_TRUE(file.OwnsBlock());
}

TEST(CXMemFile, TakesOverAndHandsOutBlocks)
{
    // Under the leak checker, each block must be freed exactly once.
    MemFile file(NewBlock("first"), 5, true);
    EXPECT_TRUE(file.OwnsBlock());
    EXPECT_EQ(file.GrowBytes(), 2048u);
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
    EXPECT_EQ(file.Capacity(), 0u);
    CXMemFile::Free(nullptr);

    file.Write("kept", 4);
    EXPECT_EQ(Thrown([&] { file.Attach(nullptr, 1, true); }), kInvalidArgument);
    EXPECT_EQ(file.Contents(), "kept");
    EXPECT_EQ(Thrown([] { MemFile refused(nullptr, 1, false, true); }), kInvalidArgument);
    MemFile empty(nullptr, 1, true, false);
    EXPECT_EQ(empty.Capacity(), 0u);
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
        {7, CXFile::begin, false, 7},   {0, CXFile::begin, false, 0},      {15, CXFile::begin, false, 15},
        {4, CXFile::current, false, 7}, {-3, CXFile::current, false, 0},   {20, CXFile::current, false, 23},
        {0, CXFile::end, false, 10},    {-10, CXFile::end, false, 0},      {1, CXFile::end, true, kStaysAt},
        {-1, CXFile::begin, true, 0},   {-4, CXFile::current, true, 0},    {-11, CXFile::end, true, 0},
        {5, 3, false, kStaysAt},        {-5, 0xFFFFFFFF, false, kStaysAt}, {-0x7FFFFFFFFFFFFFFF - 1, 0, true, 0},
    };
    for (const auto& c : cases)
    {
        for (const bool throws : {true, false})
        {
            SCOPED_TRACE(std::to_string(c.offset) + " from " + std::to_string(c.origin));
            MemFile file(8, throws);
            file.Write("0123456789", 10);
            file.Seek(kStaysAt, CXFile::begin);
            Size result = kStaysAt;
            const int thrown =
                Thrown([&] { result = file.Seek(c.offset, static_cast<CXFile::SeekPosition>(c.origin)); });
            const bool refused = throws && c.isBad;
            EXPECT_EQ(thrown, refused ? static_cast<int>(fileBadSeek) : kNothingThrown);
            EXPECT_EQ(result, refused ? kStaysAt : c.quietResult);
            EXPECT_EQ(file.GetPosition(), result);
            EXPECT_EQ(file.GetLength(), 10u);
            EXPECT_GE(file.Capacity(), result);
        }
    }
}

TEST(CXMemFile, LetsOnlyZerosIn)
{
    const std::string rubbish(100, '?');
    MemFile file(10);
    file.Write(rubbish.data(), 20);
    EXPECT_TRUE(file.SetLength(4));
    EXPECT_EQ(file.GetPosition(), 4u);
    EXPECT_TRUE(file.SetLength(8)); // where bytes stood before
    EXPECT_EQ(file.GetPosition(), 4u);
    EXPECT_EQ(file.Contents(), std::string("????\0\0\0\0", 8));
    EXPECT_EQ(file.Seek(12, CXFile::begin), 12u);
    EXPECT_EQ(file.GetLength(), 8u);
    file.Write("x", 1); // across a gap
    EXPECT_EQ(file.Contents(), std::string("????\0\0\0\0\0\0\0\0x", 13));

    unsigned char* start = nullptr;
    unsigned char* stop = nullptr;
    EXPECT_EQ(file.BufferCommand(CXFile::bufferWrite, 100, &start, &stop), 100u);
    std::memset(start, '?', 100);
    EXPECT_EQ(file.BufferCommand(CXFile::bufferCommit, 1, nullptr, nullptr), 1u);
    EXPECT_TRUE(file.SetLength(20)); // where bytes were lent and not committed
    EXPECT_EQ(file.Contents().substr(12), std::string("x?\0\0\0\0\0\0", 8));

    std::memset(file.GetBuffer(), '?', file.Capacity());
    EXPECT_TRUE(file.SetLength(0));
    EXPECT_TRUE(file.SetLength(20)); // where the owner of the pointer wrote
    EXPECT_EQ(file.Contents(), std::string(20, '\0'));

    EXPECT_TRUE(file.SetLength(1000)); // new memory
    EXPECT_EQ(file.Contents().substr(20), std::string(980, '\0'));
    const Size oldCapacity = file.Capacity();
    EXPECT_TRUE(file.GrowBuffer(oldCapacity + 500));
    const unsigned char* const tail = file.GetBuffer() + oldCapacity;
    EXPECT_EQ(std::count(tail, tail + 500, 0), 500);
}

TEST(CXMemFile, LendsItsBlock)
{
    unsigned char* start = nullptr;
    unsigned char* stop = nullptr;
    MemFile file(16);
    const auto lend = [&](CXFile::BufferCommands command, Size count) {
        return file.BufferCommand(command, count, &start, &stop);
    };
    EXPECT_EQ(file.BufferCommand(CXFile::bufferCheck, 0, nullptr, nullptr), 1u);
    EXPECT_EQ(file.BufferCommand(4, 1, &start, &stop), 0u);
    EXPECT_EQ(lend(CXFile::bufferRead, 5), 0u);

    EXPECT_EQ(lend(CXFile::bufferWrite, 10), 10u);
    EXPECT_EQ(stop - start, 10);
    EXPECT_EQ(file.GetPosition(), 0u);
    std::memcpy(start, "0123456789", 10);
    EXPECT_EQ(lend(CXFile::bufferCommit, 10), 10u);
    EXPECT_EQ(file.GetPosition(), 10u);
    EXPECT_EQ(file.Contents(), "0123456789");

    const struct
    {
        Size position;
        Size count;
        const char* lent;
    } cases[] = {{0, 4, "0123"},       {8, 4, "89"}, {3, 0xFFFFFFFF, "3456789"},   {0, 0, ""},
                 {10, 0xFFFFFFFF, ""}, {14, 1, ""},  {2, 0x100000000, "23456789"}, {6, kLargest - 6, "6789"}};
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.position);
        file.Seek(static_cast<__int64>(c.position), CXFile::begin);
        EXPECT_EQ(lend(CXFile::bufferRead, c.count), std::strlen(c.lent));
        EXPECT_EQ(std::string(start, stop), c.lent);
        EXPECT_EQ(file.GetPosition(), c.position + std::strlen(c.lent));
    }

    for (const CXFile::BufferCommands command : {CXFile::bufferRead, CXFile::bufferWrite})
    {
        EXPECT_EQ(file.BufferCommand(command, 1, nullptr, &stop), 0u);
        EXPECT_EQ(file.BufferCommand(command, 1, &start, nullptr), 0u);
        EXPECT_EQ(Thrown([&] { lend(command, kLargest); }), kInvalidArgument);
    }
    file.SeekToEnd();
    const Size room = file.Capacity() - file.GetPosition();
    EXPECT_EQ(Thrown([&] { lend(CXFile::bufferCommit, room + 1); }), kInvalidArgument);
    EXPECT_EQ(Thrown([&] { lend(CXFile::bufferCommit, kLargest); }), kInvalidArgument);
    EXPECT_EQ(lend(CXFile::bufferCommit, room), room);
    EXPECT_EQ(file.GetLength(), file.Capacity());

    MemFile quiet(16, false);
    quiet.Write("x", 1);
    for (const CXFile::BufferCommands command : {CXFile::bufferRead, CXFile::bufferWrite, CXFile::bufferCommit})
        EXPECT_EQ(quiet.BufferCommand(command, kLargest, &start, &stop), 0u);
    EXPECT_EQ(quiet.GetPosition(), 1u);
}

TEST(CXMemFile, WritesFromItsOwnBlock)
{
    MemFile file(1);
    file.Write("abc", 3);
    for (int i = 0; i < 10; ++i)
        file.Write(file.GetBuffer(), static_cast<unsigned>(file.GetLength()));
    std::string expected = "abc";
    for (int i = 0; i < 10; ++i)
        expected += expected;
    EXPECT_EQ(file.Contents(), expected);
    file.Seek(1, CXFile::begin);
    file.Write(file.GetBuffer(), 5); // overlapping
    EXPECT_EQ(file.Contents().substr(0, 8), "aabcabab");
}

TEST(CXMemFile, HasNoPath)
{
    CXMemFile file;
    file.Write("x", 1);
    CXFileException error;
    EXPECT_FALSE(file.Open(L"/tmp", CXFile::modeRead, &error));
    EXPECT_EQ(error.GetCause(), fileInvalidFile);
    EXPECT_FALSE(file.Open(L"/tmp", CXFile::modeRead));
    file.Flush();
    EXPECT_EQ(file.GetLength(), 1u);
    EXPECT_TRUE(file.GetFilePath().IsEmpty());
}

/// The same file as a plain vector.
struct Model
{
    std::string bytes;
    std::size_t position = 0;

    void Write(const std::string& data)
    {
        if (bytes.size() < position + data.size())
            bytes.resize(position + data.size());
        std::copy(data.begin(), data.end(), bytes.begin() + static_cast<std::ptrdiff_t>(position));
        position += data.size();
    }
    std::string Read(std::size_t count)
    {
        const std::string data = position < bytes.size() ? bytes.substr(position, count) : std::string();
        position += data.size();
        return data;
    }
};

template <class File>
void CompareWithModel(File& file, Model model, unsigned seed)
{
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    const auto below = [&random](std::size_t limit) { return random() % limit; };
    for (int step = 0; step < 3000; ++step)
    {
        std::string data(below(50), static_cast<char>('a' + below(26)));
        unsigned char* start = nullptr;
        unsigned char* stop = nullptr;
        switch (below(8))
        {
        case 0:
            if (!data.empty())
                model.Write(data);
            file.Write(data.data(), static_cast<unsigned>(data.size()));
            break;
        case 1: {
            const std::size_t count = below(80);
            data.resize(count);
            data.resize(file.Read(data.data(), static_cast<unsigned>(count)));
            ASSERT_EQ(data, model.Read(count)) << "step " << step;
            break;
        }
        case 2:
            model.position = below(model.bytes.size() + 60);
            file.Seek(static_cast<__int64>(model.position), CXFile::begin);
            break;
        case 3: {
            const std::size_t back = below(model.bytes.size() + 1);
            model.position = model.bytes.size() - back;
            file.Seek(-static_cast<__int64>(back), CXFile::end);
            break;
        }
        case 4:
            model.bytes.resize(below(model.bytes.size() + 30));
            model.position = std::min(model.position, model.bytes.size());
            ASSERT_TRUE(file.SetLength(model.bytes.size()));
            break;
        case 5: {
            const std::size_t room = data.size() + below(20);
            ASSERT_EQ(file.BufferCommand(CXFile::bufferWrite, room, &start, &stop), room);
            const auto kept = static_cast<std::ptrdiff_t>(
                std::min(room, model.bytes.size() - std::min(model.position, model.bytes.size())));
            std::fill(start + kept, stop, '?'); // what is not committed must not join the file
            std::copy(data.begin(), data.end(), start);
            ASSERT_EQ(file.BufferCommand(CXFile::bufferCommit, data.size(), nullptr, nullptr), data.size());
            model.Write(data);
            break;
        }
        case 6: {
            const std::size_t count = below(80);
            file.BufferCommand(CXFile::bufferRead, count, &start, &stop);
            ASSERT_EQ(std::string(start, stop), model.Read(count)) << "step " << step;
            break;
        }
        default:
            file.GrowBuffer(below(model.bytes.size() + 200));
            break;
        }
        ASSERT_EQ(file.GetPosition(), model.position) << "step " << step;
        ASSERT_EQ(file.Contents(), model.bytes) << "step " << step;
    }
}

TEST(CXMemFile, BehavesLikeAVectorOfBytes)
{
    const unsigned seed = 20240611;
    for (const unsigned step : {0u, 1u, 7u})
    {
        MemFile file(step);
        CompareWithModel(file, {}, seed + step);
    }
    CustomMemFile custom(CCustomMemFile::growProportionally, 3);
    CompareWithModel(custom, {}, seed);
    std::string block(100, 'b');
    MemFile attached(Bytes(block), block.size(), false);
    CompareWithModel(attached, {block, 0}, seed);
}
} // namespace
