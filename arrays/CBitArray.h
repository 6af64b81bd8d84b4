#pragma once

#include "arrays/IndexIterator.h"
#include "base/BitScan.h"
#include "base/TevTypes.h"
#include "objects/ThreadUse.h"

#include <algorithm>

/// An array of bits of fixed length. Bit i is bit i % 32, lowest first, of the 32-bit word i / 32. One thread at a time.
///
/// Copies are shallow: a copy and its source share one buffer, and both would release it. Take the buffer from one of the
/// two, with DetachBuffer or SetBuffer, before both are destroyed. Assignment releases nothing, so release the target's
/// own buffer first.
///
/// `for (const unsigned int index : bits)` walks the indices of the bits that are set, in ascending order; bits may be set
/// and cleared meanwhile.
///
/// Compared with std::vector<bool>: setting the length resets every bit; there are no references to bits; the caller may change the words. SetSize to another length, SetBuffer and RemoveAll invalidate the buffer's address. A
/// query over all bits costs one step for each word.
class TEVTOOLS_API CBitArray
{
public:
    /// Over the indices of the set bits.
    using SetBits = tev::IndexIterator<CBitArray, unsigned int>;

    CBitArray() = default;
    CBitArray(const CBitArray&) = default;
    CBitArray& operator=(const CBitArray&) = default;
    virtual ~CBitArray();

    unsigned int GetSize() const noexcept { return m_bitCount; }
    /// The bit; false past the end.
    bool GetAt(unsigned int index) const noexcept
    {
        const tev::SharedUse use(m_use);
        return index < m_presentBits && ((m_words[index / 32] >> (index % 32)) & 1) != 0;
    }
    bool operator[](unsigned int index) const noexcept { return GetAt(index); }
    SetBits begin() const noexcept { return {*this, NextSet(0)}; }
    SetBits end() const noexcept { return {*this, m_presentBits}; }
    /// The number of bits that equal the value.
    unsigned int GetCount(bool value) const noexcept;
    /// Whether any bit equals the value, true or false.
    [[nodiscard]] bool IsOneSet(bool value) const noexcept;

    /// Sets the length and resets every bit to the value, also where the length stays. Throws std::bad_alloc and leaves the
    /// array empty.
    void SetSize(unsigned int bits, bool value);
    void RemoveAll() noexcept;
    /// Sets one bit; nothing happens past the end.
    void SetAt(unsigned int index, bool value) noexcept
    {
        const tev::ExclusiveUse use(m_use);
        if (index >= m_presentBits)
            return;
        unsigned int mask = 0;
        unsigned int& word = m_words[GetIndex(index, mask)];
        word = value ? word | mask : word & ~mask;
    }
    /// Sets the whole word of 32 bits, not the byte, in which the bit lies; nothing happens past the end.
    void EraseByte(unsigned int index, bool value) noexcept;

    /// The words and their number; null and 0 in an empty array. The bits past the end in the last word may have any value.
    unsigned int* GetBuffer(unsigned int& words) noexcept;
    const unsigned int* GetBuffer(unsigned int& words) const noexcept;
    /// As GetBuffer; the caller releases the words with `delete[]`. The array is empty afterwards.
    [[nodiscard]] unsigned int* DetachBuffer(unsigned int& words) noexcept;
    /// Releases the words and adopts others, from `new unsigned int[]`. False when there are fewer than the bits need: they
    /// are adopted nevertheless, and the bits without a word are missing: read as false, not set and not counted.
    bool SetBuffer(unsigned int* words, unsigned int bits, unsigned int wordCount) noexcept;

protected:
    /// The word in which a bit lies, and the bit's mask there.
    static unsigned int GetIndex(unsigned int bit, unsigned int& mask) noexcept
    {
        mask = 1U << (bit % 32);
        return bit / 32;
    }
    /// The number of words that the bits need.
    unsigned int GetBufferSize() const noexcept { return WordsFor(m_bitCount); }

private:
    friend SetBits;
    static unsigned int ValueAt(unsigned int index) noexcept { return index; }
    unsigned int IndexAfter(unsigned int index) const noexcept { return NextSet(index + 1); }
    /// The first set bit from an index on, else the end.
    unsigned int NextSet(unsigned int from) const noexcept
    {
        const tev::SharedUse use(m_use);
        while (from < m_presentBits)
        {
            const unsigned int word = m_words[from / 32] >> (from % 32);
            if (word != 0)
                return std::min(from + tev::TrailingZeros(word), m_presentBits);
            from = (from / 32 + 1) * 32;
            if (from == 0)
                break; // behind the last index that there is
        }
        return m_presentBits;
    }
    static unsigned int WordsFor(unsigned int bits) noexcept { return bits / 32 + (bits % 32 != 0 ? 1 : 0); }
    unsigned int m_bitCount = 0;
    unsigned int* m_words = nullptr;
    unsigned int m_presentBits = 0; // fewer than all after SetBuffer was given too few words
    tev::ThreadUse m_use;
};
