#include "tests/trials/FailingMalloc.h"

#include <atomic>
#include <cerrno>
#include <cstddef>

extern "C"
{
    // The C library's own, under the names that it exports for replacements.
    void* __libc_malloc(std::size_t size);
    void* __libc_calloc(std::size_t count, std::size_t size);
    void* __libc_realloc(void* block, std::size_t size);
    void* __libc_memalign(std::size_t alignment, std::size_t size);
}

namespace
{
std::atomic<bool> g_counts{false};
std::atomic<bool> g_all{false};
std::atomic<unsigned> g_at{0};
std::atomic<unsigned> g_count{0};

bool Fails() noexcept
{
    if (!g_counts)
        return false;
    const unsigned number = ++g_count;
    const bool fails = g_at != 0 && (number == g_at || (g_all && number > g_at));
    if (fails)
        errno = ENOMEM;
    return fails;
}
} // namespace

extern "C"
{
    void* malloc(std::size_t size)
    {
        return Fails() ? nullptr : __libc_malloc(size);
    }
    void* calloc(std::size_t count, std::size_t size)
    {
        return Fails() ? nullptr : __libc_calloc(count, size);
    }
    void* realloc(void* block, std::size_t size)
    {
        return size != 0 && Fails() ? nullptr : __libc_realloc(block, size);
    }
    void* memalign(std::size_t alignment, std::size_t size)
    {
        return Fails() ? nullptr : __libc_memalign(alignment, size);
    }
    void* aligned_alloc(std::size_t alignment, std::size_t size)
    {
        return memalign(alignment, size);
    }
    int posix_memalign(void** block, std::size_t alignment, std::size_t size)
    {
        void* const made = memalign(alignment, size);
        if (made == nullptr)
            return ENOMEM;
        *block = made;
        return 0;
    }
}

namespace tev::trials
{
void StartFailing(unsigned n, bool all) noexcept
{
    g_at = n;
    g_all = all;
    g_count = 0;
    g_counts = true;
}

void StopFailing() noexcept
{
    g_counts = false;
}

unsigned CountedAllocations() noexcept
{
    return g_count;
}
} // namespace tev::trials
