#pragma once

#include <cstddef>

namespace tev::platform
{
/// Size and alignment of large pages.
constexpr std::size_t kLargePage = std::size_t(1) << 21;

/// Asks the system to use large pages for the part of a block that is aligned to them, where it has such. The block
/// must not have been written to yet. A hint: whether it is followed is not reported.
void PreferLargePages(void* block, std::size_t bytes) noexcept;
} // namespace tev::platform
