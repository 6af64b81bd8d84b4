#pragma once

#include <algorithm>
#include <cerrno>
#include <cstddef>

namespace tev::platform
{

/// The largest transfer of one system call. Some systems refuse more than this, others transfer less than requested.
constexpr std::size_t kMaxTransfer = 0x7ffff000;

/// Calls `readOnce(bytes, count)`, which behaves like read(2), once. An interrupted call is repeated. False, with the error
/// in errno, when it fails; nothing delivered and true: the source has ended.
template <class ReadOnce>
[[nodiscard]] bool ReadAvailable(ReadOnce&& readOnce, void* buffer, std::size_t count, std::size_t& delivered)
{
    std::ptrdiff_t got = 0;
    do
        got = readOnce(buffer, std::min(count, kMaxTransfer));
    while (got < 0 && errno == EINTR);
    delivered = static_cast<std::size_t>(std::max<std::ptrdiff_t>(got, 0));
    return got >= 0;
}

/// As ReadAvailable, until `count` bytes are read, or the source ends or fails. False only when the source failed before
/// anything was read: what was read before a failure is delivered, and the next call meets the failure again.
template <class ReadOnce>
[[nodiscard]] bool ReadFully(ReadOnce&& readOnce, void* buffer, std::size_t count, std::size_t& delivered)
{
    delivered = 0;
    for (std::size_t got = 1; got != 0 && delivered < count; delivered += got)
    {
        if (!ReadAvailable(readOnce, static_cast<char*>(buffer) + delivered, count - delivered, got))
            return delivered > 0;
    }
    return true;
}

/// Calls `writeOnce(bytes, count)`, which behaves like write(2), until `count` bytes are written, or it takes none or
/// fails. An interrupted call is repeated. False, with the error in errno, when it failed, even after a part was
/// written; `written` is right in every case.
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
