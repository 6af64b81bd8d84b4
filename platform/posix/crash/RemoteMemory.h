#pragma once

#include "platform/posix/crash/MinidumpWriter.h"

#include <sys/types.h>

namespace tev::platform
{
/// The memory of a process of this user, or of the calling process: reading an unmapped address fails instead of faulting.
class RemoteMemory final : public DumpedMemory
{
public:
    explicit RemoteMemory(pid_t process) noexcept : m_process(process) {}
    bool Read(std::uint64_t address, void* buffer, std::size_t size) noexcept override;

private:
    const pid_t m_process;
};

/// Lists the identifiers of the threads of a process, `first` first. Returns how many; 0 on failure. Safe in signal
/// handlers.
std::size_t ListThreads(pid_t process, pid_t first, pid_t* threads, std::size_t most) noexcept;
} // namespace tev::platform
