#pragma once

#include <cstdint>

namespace tev
{
/// Number of zero bits below the lowest one bit.
inline unsigned TrailingZeros(std::uint64_t bits) noexcept
{
#if defined(__GNUC__)
    return static_cast<unsigned>(__builtin_ctzll(bits));
#else
    unsigned count = 0;
    for (; (bits & 1) == 0; bits >>= 1)
        ++count;
    return count;
#endif
}
} // namespace tev
