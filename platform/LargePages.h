#pragma once

#include <cstddef>

namespace tev::platform
{
/// What the addresses of large pages are multiples of.
constexpr std::size_t kLargePage = std::size_t(1) << 21;

/// Asks the system to back the whole large pages in a block with memory pages of that size, where it has them. The block
/// must not have been written to yet. A wish: nothing tells whether it was granted.
void PreferLargePages(void* block, std::size_t bytes) noexcept;
} // namespace tev::platform
