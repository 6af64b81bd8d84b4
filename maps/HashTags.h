#pragma once

#include "base/BitScan.h"
#include "base/LittleEndian.h"
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

/// How many tags are looked at together, and how many are repeated behind the last slot's.
inline constexpr std::size_t kTagGroup = 16;

/// What a table without slots looks into: every home is 0, and there it is empty.
inline constexpr unsigned char kNoTags[kTagGroup] = {};

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

/// Sixteen tags. Each query answers with one bit for each, the first one lowest.
class PortableTagGroup
{
public:
    explicit PortableTagGroup(const unsigned char* tags) noexcept
        : m_low(LoadLittleEndian<std::uint64_t>(tags)), m_high(LoadLittleEndian<std::uint64_t>(tags + 8))
    {
    }

    unsigned Occupied() const noexcept { return Joined(m_low, m_high); }
    unsigned Equal(unsigned char tag) const noexcept
    {
        return Joined(Zeros(m_low ^ Repeated(tag)), Zeros(m_high ^ Repeated(tag)));
    }

private:
    static constexpr std::uint64_t kHighBits = 0x8080808080808080;

    static constexpr std::uint64_t Repeated(unsigned char tag) noexcept
    {
        return tag * std::uint64_t(0x0101010101010101);
    }
    // A byte of 0 is the only one that has no high bit, neither its own nor by the sum.
    static constexpr std::uint64_t Zeros(std::uint64_t word) noexcept
    {
        return ~(word | ((word & ~kHighBits) + ~kHighBits));
    }
    static constexpr unsigned Joined(std::uint64_t low, std::uint64_t high) noexcept
    {
        return HighBits(low) | HighBits(high) << 8;
    }
    // The product moves each of the eight bits to one of its own in the highest byte.
    static constexpr unsigned HighBits(std::uint64_t word) noexcept
    {
        return static_cast<unsigned>(((word & kHighBits) >> 7) * 0x0102040810204080 >> 56);
    }

    std::uint64_t m_low;
    std::uint64_t m_high;
};

#if defined(__SSE2__) && defined(__GNUC__)
/// The same in the registers that every x86-64 processor has. In the compiler's own terms: <emmintrin.h> would make every
/// program that includes a map compile longer.
class TagGroup
{
public:
    explicit TagGroup(const unsigned char* tags) noexcept { std::memcpy(&m_tags, tags, sizeof m_tags); }

    unsigned Occupied() const noexcept { return HighBits(m_tags); }
    unsigned Equal(unsigned char tag) const noexcept { return HighBits(m_tags == Tags{} + static_cast<char>(tag)); }

private:
    using Tags = char __attribute__((vector_size(kTagGroup)));

    template <class Vector>
    static unsigned HighBits(const Vector& bytes) noexcept
    {
        Tags tags;
        static_assert(sizeof tags == sizeof bytes);
        std::memcpy(&tags, &bytes, sizeof tags);
        return static_cast<unsigned>(__builtin_ia32_pmovmskb128(tags));
    }

    Tags m_tags;
};
#else
using TagGroup = PortableTagGroup;
#endif

/// The slots 0, 1, 4 and 9 behind its home are the first four of a search: their bits in the answer of a group.
inline constexpr unsigned kProbedTags = 1 << 0 | 1 << 1 | 1 << 4 | 1 << 9;
/// The fifth slot of a search, and the step to the sixth.
inline constexpr std::size_t kFifthProbe = 16;
inline constexpr std::size_t kFifthStep = 9;

// What is called seldom stays out of the loops of callers.
#if defined(__GNUC__)
#define TEV_CALLED_SELDOM __attribute__((noinline, cold))
#else
#define TEV_CALLED_SELDOM
#endif

inline void PrefetchForWrite(const void* address) noexcept
{
#if defined(__GNUC__)
    __builtin_prefetch(address, 1);
#else
    static_cast<void>(address);
#endif
}
} // namespace tev
