#include "containers/ArrayBlock.h"

#include "core/CXArchive.h"

namespace tev
{
namespace
{
constexpr std::uint64_t kFirstReadStep = 0x10000;
} // namespace

ArrayBlock<unsigned char> LoadArrayBlock(CXArchive& archive, std::uint64_t bytes)
{
    ArrayBlock<unsigned char> block;
    for (std::uint64_t done = 0; done < bytes;)
    {
        const std::uint64_t step = std::min(bytes - done, std::max(done, kFirstReadStep));
        unsigned char* const longer = ResizedArrayBlock(block.get(), done + step);
        static_cast<void>(block.release());
        block.reset(longer);
        archive.EnsureRead(longer + done, step);
        done += step;
    }
    return block;
}

void StoreArrayBlock(CXArchive& archive, const void* block, std::uint64_t bytes)
{
    archive.Write(block, bytes);
}
} // namespace tev
