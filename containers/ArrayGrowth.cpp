#include "containers/ArrayGrowth.h"

#include "core/CXException.h"
#include "core/MemoryBlock.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

namespace tev
{
namespace
{
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

int GrownCapacity(int size, int capacity, int growBy, int newSize)
{
    if (capacity == 0)
        return std::max(newSize, growBy);
    std::int64_t step = growBy;
    if (growBy == kGrowTwofold)
        step = capacity;
    else if (growBy == kGrowAutomatically)
        step = AutomaticGrowthStep(size);
    if (capacity + step > kMostElements)
        ThrowInvalidArgument();
    return std::max(newSize, static_cast<int>(capacity + step));
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
    if (!IsOverAligned(shape))
        return Checked(std::realloc(block, BytesOf(slots, shape)));
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
