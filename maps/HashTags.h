#pragma once

#include "base/BitScan.h"
#include "maps/CHashMethods.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

// The tag bytes of a hash table, and its remainders. HashTableBase.h explains what they are for.

namespace tev
{
inline constexpr unsigned char kEmptyTag = 0;
inline constexpr unsigned char kDeletedTag = 0x40;
inline constexpr unsigned char kOccupiedTag = 0x80;

/// Tags repeated behind the last slot's.
inline constexpr std::size_t kTagPadding = 8;

/// What a table without slots looks into: every home is 0, and there it is empty.
inline constexpr unsigned char kNoTags[kTagPadding] = {};

/// 2^64 / divisor, rounded up: with it a remainder costs two multiplications.
constexpr std::uint64_t ReciprocalOf(unsigned divisor) noexcept
{
    return UINT64_MAX / divisor + 1;
}

/// number % divisor, exact for every 32-bit pair: number * reciprocal mod 2^64 is the fraction of the quotient, scaled by
/// 2^64 and too large by less than 2^32, and its product with the divisor is the remainder, scaled alike.
constexpr unsigned Remainder(unsigned number, unsigned divisor, std::uint64_t reciprocal) noexcept
{
    return static_cast<unsigned>(Multiply(reciprocal * number, divisor).m_high);
}

/// Eight tags, the first one lowest. Each query answers with the high bits of the bytes that it holds for.
class TagWord
{
public:
    explicit TagWord(const unsigned char* tags) noexcept
    {
        std::memcpy(&m_word, tags, sizeof(m_word));
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
        m_word = __builtin_bswap64(m_word);
#endif
    }

    std::uint64_t Occupied() const noexcept
    {
        return m_word & kHighBits;
    }
    // Among the first three slots of a search.
    std::uint64_t Empty() const noexcept
    {
        return ~(m_word | (m_word << 1)) & kProbed;
    }
    std::uint64_t EmptyOrDeleted() const noexcept
    {
        return ~m_word & kProbed;
    }
    std::uint64_t Equal(unsigned char tag) const noexcept
    {
        // A byte of 0 is the only one that has no high bit, neither its own nor by the sum.
        const std::uint64_t difference = m_word ^ (tag * kLowBits);
        return ~(difference | ((difference & ~kHighBits) + ~kHighBits)) & kProbed;
    }

    /// The lowest byte that an answer names.
    static std::size_t First(std::uint64_t answer) noexcept
    {
        return TrailingZeros(answer) / 8;
    }

private:
    static constexpr std::uint64_t kHighBits = 0x8080808080808080;
    static constexpr std::uint64_t kLowBits = 0x0101010101010101;
    static constexpr std::uint64_t kProbed = 0x0000008000008080;

    std::uint64_t m_word;
};

/// The fourth slot of a search, 9 after its home, and the step to the fifth.
inline constexpr std::size_t kFourthProbe = 9;
inline constexpr std::size_t kFourthStep = 7;

inline void PrefetchForWrite(const void* address) noexcept
{
#if defined(__GNUC__)
    __builtin_prefetch(address, 1);
#else
    static_cast<void>(address);
#endif
}
} // namespace tev
