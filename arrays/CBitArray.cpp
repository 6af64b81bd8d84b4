#include "arrays/CBitArray.h"

#include "objects/FailureNote.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace
{
constexpr unsigned kAllOnes = 0xFFFFFFFF;

unsigned Fill(bool value) noexcept
{
    return value ? kAllOnes : 0;
}

#if defined(__GNUC__)
#define TEV_ALWAYS_INLINE __attribute__((always_inline))
#else
#define TEV_ALWAYS_INLINE
#endif

// Two words at a time, four sums side by side, so that one count need not wait for the other. Inlined always, since it is
// compiled for the processor that its caller is compiled for.
template <class COUNT>
TEV_ALWAYS_INLINE inline std::uint64_t SumOnes(const unsigned* words, std::size_t count) noexcept
{
    std::uint64_t ones[4] = {};
    std::size_t at = 0;
    for (; at + 8 <= count; at += 8)
    {
        std::uint64_t pairs[4];
        std::memcpy(pairs, words + at, sizeof(pairs));
        for (unsigned i = 0; i < 4; ++i)
            ones[i] += COUNT::Ones(pairs[i]);
    }
    for (; at < count; ++at)
        ones[0] += COUNT::Ones(words[at]);
    return ones[0] + ones[1] + ones[2] + ones[3];
}

struct ByArithmetic
{
    // In parallel within the word: pairs, fours, eights, and the sum of the bytes.
    TEV_ALWAYS_INLINE static std::uint64_t Ones(std::uint64_t word) noexcept
    {
        word -= (word >> 1) & 0x5555555555555555;
        word = (word & 0x3333333333333333) + ((word >> 2) & 0x3333333333333333);
        word = (word + (word >> 4)) & 0x0F0F0F0F0F0F0F0F;
        return (word * 0x0101010101010101) >> 56;
    }
};

std::uint64_t SumByArithmetic(const unsigned* words, std::size_t count) noexcept
{
    return SumOnes<ByArithmetic>(words, count);
}

#if defined(__GNUC__) && defined(__x86_64__)
struct ByInstruction
{
    TEV_ALWAYS_INLINE static std::uint64_t Ones(std::uint64_t word) noexcept
    {
        return static_cast<std::uint64_t>(__builtin_popcountll(word));
    }
};

__attribute__((target("popcnt"))) std::uint64_t SumByInstruction(const unsigned* words, std::size_t count) noexcept
{
    return SumOnes<ByInstruction>(words, count);
}
#endif

// The bits that belong to an array in its last word, where that is not whole.
unsigned LastMask(unsigned bits) noexcept
{
    return (1U << (bits % 32)) - 1;
}

// The bits that are 1 in whole words.
std::uint64_t CountOnes(const unsigned* words, std::size_t count) noexcept
{
#if defined(__GNUC__) && defined(__x86_64__)
    static const bool hasInstruction = __builtin_cpu_supports("popcnt") != 0;
    if (hasInstruction)
        return SumByInstruction(words, count);
#endif
    return SumByArithmetic(words, count);
}

// Whether any of the words differs from one, eight words at a look.
bool AnyDiffers(const unsigned* words, std::size_t count, unsigned from) noexcept
{
    std::size_t at = 0;
    for (; at + 8 <= count; at += 8)
    {
        unsigned differences = 0;
        for (unsigned i = 0; i < 8; ++i)
            differences |= words[at + i] ^ from;
        if (differences != 0)
            return true;
    }
    return std::any_of(words + at, words + count, [from](unsigned word) { return word != from; });
}
} // namespace

CBitArray::~CBitArray()
{
    delete[] m_words;
}

void CBitArray::EraseByte(unsigned index, bool value) noexcept
{
    const tev::ExclusiveUse use(m_use);
    if (index < m_presentBits)
        m_words[index / 32] = Fill(value);
}

unsigned CBitArray::GetCount(bool value) const noexcept
{
    const tev::SharedUse use(m_use);
    const unsigned whole = m_presentBits / 32;
    std::uint64_t ones = CountOnes(m_words, whole);
    const unsigned lastMask = LastMask(m_presentBits);
    if (lastMask != 0)
    {
        const unsigned last = m_words[whole] & lastMask;
        ones += CountOnes(&last, 1);
    }
    return static_cast<unsigned>(value ? ones : m_presentBits - ones);
}

bool CBitArray::IsOneSet(bool value) const noexcept
{
    const tev::SharedUse use(m_use);
    const unsigned whole = m_presentBits / 32;
    const unsigned lastMask = LastMask(m_presentBits);
    const unsigned none = Fill(!value);
    return AnyDiffers(m_words, whole, none) || (lastMask != 0 && ((m_words[whole] ^ none) & lastMask) != 0);
}

void CBitArray::SetSize(unsigned bits, bool value)
{
    const tev::ExclusiveUse use(m_use);
    const unsigned words = WordsFor(bits);
    if (bits != m_bitCount || m_words == nullptr || m_presentBits != bits)
    {
        RemoveAll();
        m_words = words == 0 ? nullptr : new unsigned[words];
        m_bitCount = bits;
        m_presentBits = bits;
    }
    std::fill_n(m_words, words, Fill(value));
}

void CBitArray::RemoveAll() noexcept
{
    const tev::ExclusiveUse use(m_use);
    delete[] m_words;
    m_words = nullptr;
    m_bitCount = 0;
    m_presentBits = 0;
}

const unsigned* CBitArray::GetBuffer(unsigned& words) const noexcept
{
    const tev::SharedUse use(m_use);
    words = WordsFor(m_presentBits);
    return m_words;
}

unsigned* CBitArray::GetBuffer(unsigned& words) noexcept
{
    const tev::SharedUse use(m_use);
    words = WordsFor(m_presentBits);
    return m_words;
}

unsigned* CBitArray::DetachBuffer(unsigned& words) noexcept
{
    const tev::ExclusiveUse use(m_use);
    unsigned* buffer = GetBuffer(words);
    m_words = nullptr;
    RemoveAll();
    return buffer;
}

bool CBitArray::SetBuffer(unsigned* words, unsigned bits, unsigned wordCount) noexcept
{
    const tev::ExclusiveUse use(m_use);
    if (words != m_words)
        delete[] m_words;
    const unsigned needed = WordsFor(bits);
    m_words = words;
    m_bitCount = bits;
    m_presentBits = words == nullptr ? 0 : wordCount < needed ? wordCount * 32 : bits;
    return wordCount >= needed || tev::NoteBadArgument("CBitArray::SetBuffer");
}
