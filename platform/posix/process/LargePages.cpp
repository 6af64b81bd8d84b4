#include "platform/LargePages.h"

#include <sys/mman.h>

#include <cstdint>

namespace tev::platform
{
void PreferLargePages(void* block, std::size_t bytes) noexcept
{
#if defined(MADV_HUGEPAGE)
    const auto begin = reinterpret_cast<std::uintptr_t>(block);
    const std::uintptr_t first = (begin + kLargePage - 1) / kLargePage * kLargePage;
    const std::uintptr_t end = (begin + bytes) / kLargePage * kLargePage;
    if (first < end)
        ::madvise(reinterpret_cast<void*>(first), end - first, MADV_HUGEPAGE);
#else
    static_cast<void>(block);
    static_cast<void>(bytes);
#endif
}
} // namespace tev::platform
