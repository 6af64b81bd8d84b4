#pragma once

#include <algorithm>
#include <cerrno>
#include <cstddef>

namespace tev::platform
{

/// The largest transfer of one system call. Some systems refuse more than this, others transfer less than requested.
constexpr std::size_t kMaxTransfer = 0x7ffff000;

/// Calls `readOnce(bytes, count)`, which behaves like read(2), until `count` bytes are read, or the source ends or
/// fails. An interrupted call is repeated. False, with the error in errno, only when the source failed before anything
/// was read: what was read before a failure is delivered, and the next call meets the failure again.
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
