#include "arrays/ArrayGrowth.h"

#include "objects/CXException.h"
#include "platform/MemoryBlock.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

namespace tev
{
namespace
{
// Up to here, allocators are quick to find another block, and slow to look whether the present one can be longer.
constexpr std::size_t kSmallBlock = 1024;

// Beyond what malloc aligns to, its in-place growth is not to be had.
bool IsOverAligned(ArrayBlockShape shape) noexcept
{
    return shape.m_alignment > alignof(std::max_align_t);
}

std::size_t BytesOf(int slots, ArrayBlockShape shape)
{
    if (static_cast<std::size_t>(slots) > PTRDIFF_MAX / shape.m_elementSize)
        throw std::bad_array_new_length();
    return static_cast<std::size_t>(slots) * shape.m_elementSize;
}

void* Checked(void* block)
{
    if (block == nullptr)
        throw std::bad_alloc();
    return block;
}
} // namespace

void ThrowInvalidArgument()
{
    CXInvalidArgException::Throw();
}

void* AllocateArrayBlock(int slots, ArrayBlockShape shape, bool zeroed)
{
    const std::size_t bytes = BytesOf(slots, shape);
    if (!IsOverAligned(shape))
        return Checked(zeroed ? std::calloc(1, bytes) : std::malloc(bytes));
    void* block = Checked(AllocateBlock(bytes, shape.m_alignment));
    if (zeroed)
        std::memset(block, 0, bytes);
    return block;
}

void* ResizeArrayBlock(void* block, int used, int oldSlots, int slots, ArrayBlockShape shape)
{
    const std::size_t bytes = BytesOf(slots, shape);
    if (!IsOverAligned(shape) && bytes > kSmallBlock)
        return Checked(std::realloc(block, bytes));
    void* fresh = AllocateArrayBlock(slots, shape, false);
    if (used != 0)
        std::memcpy(fresh, block, static_cast<std::size_t>(used) * shape.m_elementSize);
    FreeArrayBlock(block, oldSlots, shape);
    return fresh;
}

void FreeArrayBlock(void* block, int slots, ArrayBlockShape shape) noexcept
{
    if (IsOverAligned(shape))
        FreeBlock(block, BytesOf(slots, shape), shape.m_alignment);
    else
        std::free(block);
}
} // namespace tev
