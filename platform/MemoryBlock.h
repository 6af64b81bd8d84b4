#pragma once

#include <cstddef>

namespace tev
{
/// Memory for a container's array; null when it cannot be had. Blocks of some megabytes lie so that the system can back
/// them with large pages: random access to them costs fewer misses of the address cache, and a fresh one fewer page faults.
void* AllocateBlock(std::size_t bytes, std::size_t alignment) noexcept;
/// Ends a block; null is ignored. Size and alignment are those that it was asked for with.
void FreeBlock(void* block, std::size_t bytes, std::size_t alignment) noexcept;
} // namespace tev
