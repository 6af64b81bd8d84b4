#pragma once

#include "base/TevTypes.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

// The growth of arrays, and the memory that they grow in.

namespace tev
{
/// Growth settings that are no step: what they are for a function that takes one.
constexpr int kGrowAutomatically = 0;
constexpr int kKeepGrowth = -1;
constexpr int kGrowTwofold = -2;

constexpr int kMostElements = 0x7FFFFFFF;

/// Slots that an array of `size` elements gains when its growth setting is automatic: an eighth, at least 4, at most 1024.
template <typename Count>
constexpr Count AutomaticGrowthStep(Count size) noexcept
{
    return std::clamp<Count>(size / 8, 4, 1024);
}

/// For what an array refuses. Out of line, so that callers stay small.
[[noreturn]] TEVTOOLS_API void ThrowInvalidArgument();

/// The growth setting after one was passed. One below -2 is an invalid argument.
inline int ChosenGrowth(int present, int passed)
{
    if (passed < kGrowTwofold)
        ThrowInvalidArgument();
    return passed == kKeepGrowth ? present : passed;
}

/// The capacity that an array gets so that it holds `newSize` elements, which are more than its capacity. One beyond 32
/// bits is an invalid argument.
inline int GrownCapacity(int size, int capacity, int growBy, int newSize)
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

/// An array's own int, of a type apart: the compiler knows that storing an element that is an int does not change it, and
/// keeps it in a register in loops over the elements.
class ArrayInt
{
public:
    constexpr ArrayInt(int value) noexcept : m_value(static_cast<Value>(value)) {}
    constexpr operator int() const noexcept { return static_cast<int>(m_value); }
    constexpr ArrayInt& operator+=(int count) noexcept { return *this = *this + count; }
    constexpr ArrayInt& operator-=(int count) noexcept { return *this = *this - count; }

private:
    enum class Value : int
    {
    };
    Value m_value;
};

/// What a block of elements is made of.
struct ArrayBlockShape
{
    std::size_t m_elementSize;
    std::size_t m_alignment;
};

/// A block of that many slots, unspecified or zero. Throws std::bad_alloc.
[[nodiscard]] TEVTOOLS_API void* AllocateArrayBlock(int slots, ArrayBlockShape shape, bool zeroed);
/// Resizes a block of `oldSlots`, or makes one out of null; the first `used` elements go along as bytes, in place where the
/// allocator can. Throws std::bad_alloc and leaves the block as it was.
[[nodiscard]] TEVTOOLS_API void* ResizeArrayBlock(void* block, int used, int oldSlots, int slots,
                                                  ArrayBlockShape shape);
/// Null is ignored.
TEVTOOLS_API void FreeArrayBlock(void* block, int slots, ArrayBlockShape shape) noexcept;

/// The slots to ask for when a block of `slots` is too small for a capacity. Documented steps may be small, and elements
/// that cannot move as bytes are moved one by one, so a block that grows becomes twice as long: appending stays linear
/// whatever the step.
constexpr int SlotsForGrowth(int slots, int capacity) noexcept
{
    return std::max(capacity, slots > kMostElements / 2 ? kMostElements : 2 * slots);
}
} // namespace tev
