#include "maps/HashSlots.h"

#include "objects/FailureNote.h"
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

bool NoteHashFailure(HashOperation operation, bool isMap, bool isMemory) noexcept
{
    static constexpr const char* kNames[][2] = {{"CHashTable::CHashTable", "CHashMap::CHashMap"},
                                                {"CHashTable::Insert", "CHashMap::Insert"},
                                                {"CHashTable::InitHashTable", "CHashMap::InitHashTable"},
                                                {"CHashTable::Minimize", "CHashMap::Minimize"}};
    const char* const name = kNames[static_cast<unsigned>(operation)][isMap ? 1 : 0];
    return isMemory ? NoteNoMemory(name) : NoteBadArgument(name);
}

void FreeHashSlots(void* block, unsigned size, std::size_t slotBytes, std::size_t alignment) noexcept
{
    FreeBlock(block, HashBlockBytes(size, slotBytes), alignment);
}
} // namespace tev
