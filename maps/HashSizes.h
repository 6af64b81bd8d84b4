#pragma once

#include "base/TevTypes.h"

// The sizes that hash tables have: primes.

namespace tev
{
inline constexpr unsigned kDefaultHashSize = 23;

// Sizes of tables; 0 where the size would need more than 32 bits.

/// For a constructor's request, which names a size.
TEVTOOLS_API unsigned HashSizeForRequest(unsigned request) noexcept;
/// With room for that many entries.
TEVTOOLS_API unsigned HashSizeForEntries(unsigned count) noexcept;
/// The smallest for that many entries.
TEVTOOLS_API unsigned HashSizeMinimal(unsigned count) noexcept;
/// After a table of that size has become full: larger, or fit for the live entries when most were deleted.
TEVTOOLS_API unsigned HashSizeRebuilt(unsigned size, unsigned used, unsigned count) noexcept;
} // namespace tev
