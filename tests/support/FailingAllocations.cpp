#include "tests/support/FailingAllocations.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>

// The C library's allocation functions are defined here in its place: whatever this program calls allocates through them,
// the standard library's operator new too. A sanitizer has functions of its own, which must not be replaced; there the linker
// redirects the calls of the objects that it links (see the build file).
#ifdef TEVTOOLS_WRAPPED_ALLOCATIONS
#define TEV_REPLACED(name) __wrap_##name
#define TEV_ORIGINAL(name) __real_##name
#else
#define TEV_REPLACED(name) name
#define TEV_ORIGINAL(name) __libc_##name
#endif

namespace
{
thread_local unsigned t_untilFailure = 0; // 0: none fails
thread_local bool t_andLater = false;
thread_local bool t_hasFailed = false;

bool Fails() noexcept
{
    if (t_untilFailure == 0 || --t_untilFailure != 0)
        return false;
    t_untilFailure = t_andLater ? 1 : 0;
    t_hasFailed = true;
    errno = ENOMEM;
    return true;
}
} // namespace

extern "C"
{
    void* TEV_ORIGINAL(malloc)(std::size_t size) noexcept;
    void* TEV_ORIGINAL(calloc)(std::size_t count, std::size_t size) noexcept;
    void* TEV_ORIGINAL(realloc)(void* block, std::size_t size) noexcept;

    void* TEV_REPLACED(malloc)(std::size_t size) noexcept
    {
        return Fails() ? nullptr : TEV_ORIGINAL(malloc)(size);
    }
    void* TEV_REPLACED(calloc)(std::size_t count, std::size_t size) noexcept
    {
        return Fails() ? nullptr : TEV_ORIGINAL(calloc)(count, size);
    }
    void* TEV_REPLACED(realloc)(void* block, std::size_t size) noexcept
    {
        return Fails() ? nullptr : TEV_ORIGINAL(realloc)(block, size);
    }

#ifdef TEVTOOLS_WRAPPED_ALLOCATIONS
    // operator new and new[], those that return null, and those with an alignment.
    void* __real__Znwm(std::size_t size);
    void* __real__Znam(std::size_t size);
    void* __real__ZnwmRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag);
    void* __real__ZnwmSt11align_val_t(std::size_t size, std::align_val_t alignment);
    void* __real__ZnwmSt11align_val_tRKSt9nothrow_t(std::size_t size, std::align_val_t alignment,
                                                    const std::nothrow_t& tag);

    void* __wrap__Znwm(std::size_t size)
    {
        return Fails() ? throw std::bad_alloc() : __real__Znwm(size);
    }
    void* __wrap__Znam(std::size_t size)
    {
        return Fails() ? throw std::bad_alloc() : __real__Znam(size);
    }
    void* __wrap__ZnwmRKSt9nothrow_t(std::size_t size, const std::nothrow_t& tag)
    {
        return Fails() ? nullptr : __real__ZnwmRKSt9nothrow_t(size, tag);
    }
    void* __wrap__ZnwmSt11align_val_t(std::size_t size, std::align_val_t alignment)
    {
        return Fails() ? throw std::bad_alloc() : __real__ZnwmSt11align_val_t(size, alignment);
    }
    void* __wrap__ZnwmSt11align_val_tRKSt9nothrow_t(std::size_t size, std::align_val_t alignment,
                                                    const std::nothrow_t& tag)
    {
        return Fails() ? nullptr : __real__ZnwmSt11align_val_tRKSt9nothrow_t(size, alignment, tag);
    }
#else
    void* __libc_memalign(std::size_t alignment, std::size_t size) noexcept;

    void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept
    {
        return Fails() ? nullptr : __libc_memalign(alignment, size);
    }
#endif
}

namespace tev::test
{
FailingAllocations::Scope::Scope(FailingAllocations& owner) : m_owner(owner)
{
    t_untilFailure = owner.m_which;
    t_andLater = owner.m_andLater;
    t_hasFailed = false;
}

FailingAllocations::Scope::~Scope()
{
    t_untilFailure = 0;
    m_owner.m_hasFailed = m_owner.m_hasFailed || t_hasFailed;
}
} // namespace tev::test
