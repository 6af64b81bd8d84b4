#include "platform/MemoryBlock.h"

#include "platform/LargePages.h"

#include <algorithm>
#include <new>

namespace tev
{
namespace
{
// From here on, at least half of a block lies in whole large pages.
constexpr std::size_t kLarge = platform::kLargePage;

std::align_val_t AlignmentFor(std::size_t bytes, std::size_t alignment) noexcept
{
    return std::align_val_t(bytes >= kLarge ? std::max(alignment, platform::kLargePage) : alignment);
}

bool IsDefault(std::align_val_t alignment) noexcept
{
    return static_cast<std::size_t>(alignment) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__;
}
} // namespace

void* AllocateBlock(std::size_t bytes, std::size_t alignment) noexcept
{
    const std::align_val_t aligned = AlignmentFor(bytes, alignment);
    if (IsDefault(aligned))
        return ::operator new(bytes, std::nothrow);
    void* block = ::operator new(bytes, aligned, std::nothrow);
    if (block != nullptr && bytes >= kLarge)
        platform::PreferLargePages(block, bytes);
    return block;
}

void FreeBlock(void* block, std::size_t bytes, std::size_t alignment) noexcept
{
    const std::align_val_t aligned = AlignmentFor(bytes, alignment);
    if (IsDefault(aligned))
        ::operator delete(block);
    else
        ::operator delete(block, aligned);
}
} // namespace tev
