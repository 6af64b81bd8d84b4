#pragma once

namespace tev::platform
{
/// Spends a moment, some ten to hundred nanoseconds, without taking what another thread on the same core could use.
inline void PauseProcessor() noexcept
{
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield");
#endif
}
} // namespace tev::platform
