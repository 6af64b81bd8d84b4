#include "maps/HashSizes.h"

#include <algorithm>
#include <cstdint>

namespace tev
{
namespace
{
constexpr unsigned kSmallestHashSize = 5;

// The next prime at or above an odd candidate, found by trial division; 0 where none has 32 bits. Odd candidates
// below 9 are taken as they are. At most 32,768 divisions a candidate: little compared with making the table.
unsigned NextPrime(std::uint64_t candidate) noexcept
{
    std::uint64_t divisor = 3;
    while (divisor * divisor <= candidate)
    {
        if (candidate % divisor != 0)
        {
            divisor += 2;
            continue;
        }
        candidate += 2;
        divisor = 3;
    }
    return candidate <= 0xFFFFFFFF ? static_cast<unsigned>(candidate) : 0;
}

unsigned NotTooSmall(unsigned size) noexcept
{
    return size == 0 ? 0 : std::max(size, kSmallestHashSize);
}

// The share of live entries at and below which a full table is rebuilt for its live entries.
constexpr float kMostlyDeleted = 0.65F;

// The tables that are multiplied by 4 instead of 2 when they grow.
constexpr unsigned kSmallTable = 251;
} // namespace

unsigned HashSizeForRequest(unsigned request) noexcept
{
    if (request == kDefaultHashSize)
        return kDefaultHashSize;
    if (request < 3)
        return std::max(request + 1, kSmallestHashSize);
    return NotTooSmall(NextPrime(std::uint64_t(request) | 1));
}

unsigned HashSizeForEntries(unsigned count) noexcept
{
    return NotTooSmall(NextPrime(2 * std::uint64_t(count) + 3));
}

unsigned HashSizeMinimal(unsigned count) noexcept
{
    const std::uint64_t target = 2 * std::uint64_t(count) + 2;
    return NextPrime(target < kSmallestHashSize ? kSmallestHashSize : target + 1);
}

unsigned HashSizeRebuilt(unsigned size, unsigned used, unsigned count) noexcept
{
    if (static_cast<float>(count) / static_cast<float>(used) > kMostlyDeleted)
        return NextPrime((std::uint64_t(size) * (size < kSmallTable ? 4 : 2)) | 1);
    // The share is below one and the table below 2^32, so the quotient fits well into 64 bits.
    const float wanted = static_cast<float>(2 * std::uint64_t(count) + 2) / kMostlyDeleted;
    return NextPrime(std::max<std::uint64_t>(static_cast<std::uint64_t>(wanted), kDefaultHashSize) | 1);
}
} // namespace tev
