#include "platform/AddressWait.h"

#include <cerrno>
#include <climits>
#include <ctime>

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

// Called from signal handlers and between a caller's failure and its look at errno.
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

void WaitWhile(const std::atomic<std::uint32_t>& word, std::uint32_t value, unsigned timeoutMs) noexcept
{
    const timespec timeout = {static_cast<time_t>(timeoutMs / 1000), static_cast<long>(timeoutMs % 1000) * 1000000};
    Futex(word, FUTEX_WAIT, value, &timeout);
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
