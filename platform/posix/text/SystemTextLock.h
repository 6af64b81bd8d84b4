#pragma once

#include "platform/Cancellation.h"
#include "platform/ThreadLocks.h"

#include <mutex>

namespace tev::platform
{
/// Held around calls of the C library that take a lock of its own: time zones, locales, translations, converters, users. A
/// child made by fork would never get such a lock when another thread had it; a fork waits for this one instead. Not to be
/// taken twice.
class SystemTextGuard
{
public:
    SystemTextGuard() noexcept;

private:
    const WithoutCancellation m_whole;
    const std::lock_guard<SystemLock> m_guard;
};
} // namespace tev::platform
