#pragma once

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#include <sanitizer/lsan_interface.h>
#endif
#endif

namespace tev::test
{
// Memory and time are many times larger under the address and thread sanitizers.
#if defined(__has_feature)
constexpr bool kIsThreadSanitized = __has_feature(thread_sanitizer);
constexpr bool kIsSanitized = kIsThreadSanitized || __has_feature(address_sanitizer);
#elif defined(__SANITIZE_THREAD__)
constexpr bool kIsThreadSanitized = true;
constexpr bool kIsSanitized = true;
#else
constexpr bool kIsThreadSanitized = false;
#ifdef __SANITIZE_ADDRESS__
constexpr bool kIsSanitized = true;
#else
constexpr bool kIsSanitized = false;
#endif
#endif

/// What the calling thread allocates from now on may be left behind, as by a thread that is killed.
inline void AllowLeaks()
{
#if defined(__has_feature)
#if __has_feature(address_sanitizer)
    __lsan_disable();
#endif
#endif
}
} // namespace tev::test
