#include "maps/HashSlots.h"

#include "platform/MemoryBlock.h"

#include <cstdint>

namespace tev
{
namespace
{
// The slots and a byte for each, with some to spare.
std::size_t HashBlockBytes(unsigned size, std::size_t slotBytes) noexcept
{
    return size * (slotBytes + 1) + kTagGroup;
}
} // namespace

void* AllocateHashSlots(unsigned size, std::size_t slotBytes, std::size_t alignment) noexcept
{
    if (slotBytes > (PTRDIFF_MAX - kTagGroup) / size - 1)
        return nullptr;
    return AllocateBlock(HashBlockBytes(size, slotBytes), alignment);
}

void FreeHashSlots(void* block, unsigned size, std::size_t slotBytes, std::size_t alignment) noexcept
{
    FreeBlock(block, HashBlockBytes(size, slotBytes), alignment);
}
} // namespace tev
