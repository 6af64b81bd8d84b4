#include "platform/AddressWait.h"

#include <cerrno>
#include <climits>
#include <ctime>

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

// Called from signal handlers, and where a caller has yet to read errno.
namespace
{
void Futex(const std::atomic<std::uint32_t>& word, int operation, std::uint32_t value, const timespec* timeout) noexcept
{
    const int error = errno;
    syscall(SYS_futex, &word, operation | FUTEX_PRIVATE_FLAG, value, timeout, nullptr, 0);
    errno = error;
}
} // namespace

namespace tev::platform
{
void WaitWhile(const std::atomic<std::uint32_t>& word, std::uint32_t value) noexcept
{
    Futex(word, FUTEX_WAIT, value, nullptr);
}

void WaitWhile(const std::atomic<std::uint32_t>& word, std::uint32_t value, std::chrono::nanoseconds timeout) noexcept
{
    const auto seconds = std::chrono::floor<std::chrono::seconds>(timeout);
    const timespec relative = {static_cast<time_t>(seconds.count()), static_cast<long>((timeout - seconds).count())};
    Futex(word, FUTEX_WAIT, value, &relative);
}

void WakeOne(const std::atomic<std::uint32_t>& word) noexcept
{
    Futex(word, FUTEX_WAKE, 1, nullptr);
}

void WakeAll(const std::atomic<std::uint32_t>& word) noexcept
{
    Futex(word, FUTEX_WAKE, INT_MAX, nullptr);
}
} // namespace tev::platform
