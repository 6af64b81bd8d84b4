#include "arrays/CBitArray.h"

#include "tests/support/Testing.h"

namespace
{
struct OpenBitArray : CBitArray
{
    using CBitArray::GetBufferSize;
    using CBitArray::GetIndex;
};

void ExpectSame(const CBitArray& bits, const std::vector<bool>& model)
{
    std::vector<unsigned> set;
    ASSERT_EQ(bits.GetSize(), model.size());
    for (unsigned i = 0; i < model.size(); ++i)
    {
        ASSERT_EQ(bits.GetAt(i), model[i]) << i;
        if (model[i])
            set.push_back(i);
    }
    std::vector<unsigned> walked;
    for (const unsigned index : bits)
        walked.push_back(index);
    EXPECT_EQ(walked, set);
    const auto ones = static_cast<unsigned>(set.size());
    const auto size = static_cast<unsigned>(model.size());
    EXPECT_EQ(bits.GetCount(true), ones) << size;
    EXPECT_EQ(bits.GetCount(false), size - ones) << size;
    EXPECT_EQ(bits.IsOneSet(true), ones != 0) << size;
    EXPECT_EQ(bits.IsOneSet(false), ones != size) << size;
    EXPECT_FALSE(bits[size]);
    EXPECT_FALSE(bits[0xFFFFFFFF]);
}

TEST(CBitArray, EveryLengthCountsItsBitsAndNoOthers)
{
    std::mt19937 random(5);
    CBitArray bits;
    for (unsigned size = 0; size < 700; size += size < 130 ? 1 : 61)
    {
        for (const bool fill : {true, false})
        {
            std::vector<bool> model(size, fill);
            bits.SetSize(size, fill);
            unsigned words = 0;
            const unsigned* buffer = bits.GetBuffer(words);
            ASSERT_EQ(words, (size + 31) / 32);
            for (unsigned i = 0; i < words; ++i)
                ASSERT_EQ(buffer[i], fill ? 0xFFFFFFFF : 0);
            ExpectSame(bits, model);
            // One bit that differs, at each end and between, then many.
            for (unsigned step = 0; step < 20 && size != 0; ++step)
            {
                const unsigned at = step == 0 ? 0 : step == 1 ? size - 1 : random() % size;
                bits.SetAt(at, !fill);
                model[at] = !fill;
                ExpectSame(bits, model);
                if (step < 4)
                {
                    bits.SetAt(at, fill);
                    model[at] = fill;
                }
            }
            bits.SetAt(size, !fill);
            bits.EraseByte(size, !fill);
            ExpectSame(bits, model);
        }
    }
}

TEST(CBitArray, BitsLieLowestFirstInWordsOf32)
{
    OpenBitArray bits;
    bits.SetSize(70, false);
    for (const unsigned at : {0U, 31U, 33U, 69U})
        bits.SetAt(at, true);
    unsigned words = 0;
    const unsigned* buffer = bits.GetBuffer(words);
    ASSERT_EQ(words, 3U);
    EXPECT_EQ(bits.GetBufferSize(), 3U);
    EXPECT_EQ(buffer[0], 0x80000001U);
    EXPECT_EQ(buffer[1], 2U);
    EXPECT_EQ(buffer[2], 0x20U);
    bits.EraseByte(40, true);
    EXPECT_EQ(buffer[1], 0xFFFFFFFFU);
    bits.EraseByte(64, true);
    EXPECT_EQ(bits.GetCount(true), 2U + 32U + 6U);
    bits.EraseByte(63, false);
    EXPECT_EQ(buffer[1], 0U);
    unsigned mask = 0;
    EXPECT_EQ(OpenBitArray::GetIndex(69, mask), 2U);
    EXPECT_EQ(mask, 0x20U);
}

TEST(CBitArray, BuffersAreHandedOverAndShared)
{
    CBitArray bits;
    bits.SetSize(64, true);
    CBitArray shared = bits;
    shared.SetAt(3, false);
    EXPECT_FALSE(bits.GetAt(3));
    unsigned words = 0;
    const std::unique_ptr<unsigned[]> buffer(shared.DetachBuffer(words));
    EXPECT_EQ(words, 2U);
    EXPECT_EQ(shared.GetSize(), 0U);
    EXPECT_FALSE(shared.IsOneSet(false));
    EXPECT_EQ(bits.DetachBuffer(words), buffer.get());

    // Words that are not there are neither read nor written, and their bits are neither ones nor zeros.
    EXPECT_FALSE(bits.SetBuffer(new unsigned[1]{0xFFFFFFFF}, 1000, 1));
    EXPECT_EQ(bits.GetSize(), 1000U);
    EXPECT_EQ(bits.GetCount(true), 32U);
    EXPECT_EQ(bits.GetCount(false), 0U);
    EXPECT_EQ(std::distance(bits.begin(), bits.end()), 32) << "the walk ends with the words";
    EXPECT_FALSE(bits.IsOneSet(false));
    EXPECT_FALSE(bits.GetAt(32));
    bits.SetAt(999, true);
    bits.EraseByte(40, true);
    EXPECT_EQ(bits.GetCount(true), 32U);
    bits.SetSize(1000, true);
    EXPECT_EQ(bits.GetCount(true), 1000U);

    EXPECT_TRUE(bits.SetBuffer(new unsigned[3]{0, 0, 0xFFFFFFFF}, 40, 3));
    EXPECT_FALSE(bits.IsOneSet(true));
    EXPECT_FALSE(bits.SetBuffer(nullptr, 1, 0));
    EXPECT_FALSE(bits.IsOneSet(false));
    bits.RemoveAll();
    EXPECT_EQ(bits.GetSize(), 0U);
}
} // namespace
