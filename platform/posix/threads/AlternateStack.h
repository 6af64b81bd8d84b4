#pragma once

#include <cstddef>

#include <signal.h>
#include <sys/mman.h>

namespace tev::platform
{
/// Gives the thread a stack for signal handlers, so that an overflow of its own stack can be reported. An existing one is
/// kept.
class AlternateStack
{
public:
    AlternateStack() noexcept
    {
        stack_t standing = {};
        if (sigaltstack(nullptr, &standing) != 0 || (standing.ss_flags & SS_DISABLE) == 0)
            return;
        void* const memory =
            mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
        if (memory == MAP_FAILED)
            return;
        stack_t mine = {};
        mine.ss_sp = memory;
        mine.ss_size = kSize;
        if (sigaltstack(&mine, nullptr) == 0)
            m_memory = memory;
        else
            munmap(memory, kSize);
    }
    ~AlternateStack()
    {
        if (m_memory == nullptr)
            return;
        stack_t standing = {};
        if (sigaltstack(nullptr, &standing) == 0 && standing.ss_sp == m_memory)
        {
            stack_t none = {};
            none.ss_flags = SS_DISABLE;
            sigaltstack(&none, nullptr);
        }
        munmap(m_memory, kSize);
    }
    AlternateStack(const AlternateStack&) = delete;
    AlternateStack& operator=(const AlternateStack&) = delete;

private:
    static constexpr std::size_t kSize = std::size_t{64} << 10;

    void* m_memory = nullptr;
};
} // namespace tev::platform
