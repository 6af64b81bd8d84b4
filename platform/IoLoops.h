#pragma once

#include <algorithm>
#include <cerrno>
#include <cstddef>

namespace tev::platform
{

/// The most that one system call is asked to move. Some systems refuse more than this, others move less than asked.
constexpr std::size_t kMaxTransfer = 0x7ffff000;

/// Calls `readOnce(bytes, count)`, which behaves like read(2), until `count` bytes have come, the source ends or fails.
/// An interrupted call is repeated. False, with the error in errno, only when the source failed before anything came:
/// what was read before a failure is delivered, and the next call meets the failure again.
template <class ReadOnce>
[[nodiscard]] bool ReadFully(ReadOnce&& readOnce, void* buffer, std::size_t count, std::size_t& delivered)
{
    delivered = 0;
    while (delivered < count)
    {
        const std::ptrdiff_t got =
            readOnce(static_cast<char*>(buffer) + delivered, std::min(count - delivered, kMaxTransfer));
        if (got == 0)
            break;
        if (got > 0)
            delivered += static_cast<std::size_t>(got);
        else if (errno != EINTR)
            return delivered > 0;
    }
    return true;
}

/// Calls `writeOnce(bytes, count)`, which behaves like write(2), until `count` bytes have gone, or it takes none or fails.
/// An interrupted call is repeated. False, with the error in errno, when it failed, even after a part has gone;
/// `written` is right in every case.
template <class WriteOnce>
[[nodiscard]] bool WriteFully(WriteOnce&& writeOnce, const void* buffer, std::size_t count, std::size_t& written)
{
    written = 0;
    while (written < count)
    {
        const std::ptrdiff_t put =
            writeOnce(static_cast<const char*>(buffer) + written, std::min(count - written, kMaxTransfer));
        if (put == 0)
            break;
        if (put > 0)
            written += static_cast<std::size_t>(put);
        else if (errno != EINTR)
            return false;
    }
    return true;
}

} // namespace tev::platform
