#pragma once

#include "base/LittleEndian.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>
#include <type_traits>

class CXArchive;

// Memory of arrays whose elements may be moved as bytes, from the C heap: there a large block grows without being copied.
namespace tev
{
struct ReleaseArrayBlock
{
    void operator()(void* block) const noexcept { std::free(block); }
};

template <class T>
using ArrayBlock = std::unique_ptr<T[], ReleaseArrayBlock>;

/// A block resized to `count` elements, or null for 0: the given one is invalid afterwards. Throws std::bad_alloc, and
/// leaves the given one, when there is no memory.
template <class T>
[[nodiscard]] T* ResizedArrayBlock(T* block, std::uint64_t count)
{
    if (count == 0)
    {
        std::free(block);
        return nullptr;
    }
    if (count > PTRDIFF_MAX / sizeof(T))
        throw std::bad_alloc();
    void* resized = std::realloc(block, static_cast<std::size_t>(count) * sizeof(T));
    if (resized == nullptr)
        throw std::bad_alloc();
    return static_cast<T*>(resized);
}

/// Reads bytes whose number comes from untrusted input. The block grows as bytes are read, so a false count costs no
/// memory. `read(target, count)` reads that many bytes or throws.
template <class READ>
ArrayBlock<unsigned char> ReadArrayBlock(std::uint64_t bytes, READ read)
{
    constexpr std::uint64_t kFirstStep = 0x10000;
    ArrayBlock<unsigned char> block;
    for (std::uint64_t done = 0; done < bytes;)
    {
        const std::uint64_t step = std::min(bytes - done, std::max(done, kFirstStep));
        unsigned char* const longer = ResizedArrayBlock(block.get(), done + step);
        static_cast<void>(block.release()); // which `longer` has replaced
        block.reset(longer);
        read(longer + done, step);
        done += step;
    }
    return block;
}

/// The same from an archive: archiveEndOfFile where it ends too early.
ArrayBlock<unsigned char> LoadArrayBlock(CXArchive& archive, std::uint64_t bytes);
void StoreArrayBlock(CXArchive& archive, const void* block, std::uint64_t bytes);

/// Numbers that the archive holds in a row.
template <class T>
ArrayBlock<T> LoadNumbers(CXArchive& archive, std::uint64_t count)
{
    static_assert(std::is_arithmetic_v<T>);
    ArrayBlock<T> numbers(reinterpret_cast<T*>(LoadArrayBlock(archive, count * sizeof(T)).release()));
    if constexpr (kIsBigEndian)
    {
        for (std::uint64_t i = 0; i < count; ++i)
            numbers[i] = LoadLittleEndian<T>(reinterpret_cast<const unsigned char*>(&numbers[i]));
    }
    return numbers;
}

template <class T>
void StoreNumbers(CXArchive& archive, const T* numbers, std::uint64_t count)
{
    static_assert(std::is_arithmetic_v<T>);
    if constexpr (kIsBigEndian)
    {
        unsigned char bytes[sizeof(T)];
        for (std::uint64_t i = 0; i < count; ++i)
        {
            StoreLittleEndian(bytes, numbers[i]);
            StoreArrayBlock(archive, bytes, sizeof bytes);
        }
        return;
    }
    StoreArrayBlock(archive, numbers, count * sizeof(T));
}
} // namespace tev
