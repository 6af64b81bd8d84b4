#pragma once

#if defined(__GNUC__) && !defined(_WIN32)
#include <cxxabi.h>
#endif

namespace tev::platform
{
/// What passes through a thread that the system ends with its destructors run (pthread_exit, cancellation). Who catches
/// everything must catch this first and throw it on, and no function on its way may be noexcept: else the process ends.
#if defined(__GNUC__) && !defined(_WIN32)
using ForcedUnwind = abi::__forced_unwind;
#else
struct ForcedUnwind
{
};
#endif
} // namespace tev::platform
