#pragma once

#include <cstddef>
#include <cstdint>

namespace tev
{

/// 32-bit FNV-1a that runs from the last byte to the first and sign-extends each byte before the exclusive or. Stored
/// checksums depend on both differences from standard FNV-1a. An empty block gives 0x811C9DC5.
inline std::uint32_t BlockChecksum(const void* block, std::size_t size) noexcept
{
    constexpr std::uint32_t kOffsetBasis = 0x811C9DC5;
    constexpr std::uint32_t kPrime = 0x01000193;
    const auto* bytes = static_cast<const signed char*>(block);
    std::uint32_t checksum = kOffsetBasis;
    while (size > 0)
    {
        --size;
        checksum = (checksum ^ static_cast<std::uint32_t>(static_cast<std::int32_t>(bytes[size]))) * kPrime;
    }
    return checksum;
}

} // namespace tev
