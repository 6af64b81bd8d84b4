#include "arrays/ArrayBlock.h"

#include "files/CXArchive.h"

namespace tev
{
ArrayBlock<unsigned char> LoadArrayBlock(CXArchive& archive, std::uint64_t bytes)
{
    return ReadArrayBlock(
        bytes, [&archive](unsigned char* target, std::uint64_t count) { archive.EnsureRead(target, count); });
}

void StoreArrayBlock(CXArchive& archive, const void* block, std::uint64_t bytes)
{
    archive.Write(block, bytes);
}
} // namespace tev
