#pragma once

#include <cstddef>

#include <sys/types.h>

namespace tev::platform
{
/// Lists the identifiers of the threads of a process, `first` first. Returns how many; 0 on failure. Safe in signal
/// handlers.
std::size_t ListThreads(pid_t process, pid_t first, pid_t* threads, std::size_t most) noexcept;
} // namespace tev::platform
