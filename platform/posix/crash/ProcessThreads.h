#pragma once

#include <cstddef>

#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

namespace tev::platform
{
/// The system's identifier of the calling thread. Safe in signal handlers.
inline pid_t OwnThreadId() noexcept
{
    return static_cast<pid_t>(syscall(SYS_gettid));
}

/// Lists the identifiers of the threads of a process, `first` first. Returns how many; 0 on failure. Safe in signal
/// handlers.
std::size_t ListThreads(pid_t process, pid_t first, pid_t* threads, std::size_t most) noexcept;
} // namespace tev::platform
