#pragma once

// Vector instructions that not every processor of the kind that the library is built for has.

#include <atomic>

namespace tev
{
/// Set by tests, so that what is for other processors runs as well.
inline std::atomic<bool> g_withoutAvx2{false};

inline bool HasAvx2() noexcept
{
#if defined(__x86_64__) && defined(__GNUC__)
    return __builtin_cpu_supports("avx2") && !g_withoutAvx2.load(std::memory_order_relaxed);
#else
    return false;
#endif
}
} // namespace tev
