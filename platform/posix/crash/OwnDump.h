#pragma once

#include "platform/posix/crash/CrashHelperProtocol.h"

namespace tev::platform
{
/// Reserves memory and descriptors, once.
void PrepareOwnDump() noexcept;
/// Writes a dump of this process, whose other threads are stopped by a signal meanwhile; of threads that do not stop in
/// time only the identifiers are written. False also while another dump is being written. Safe in signal handlers.
[[nodiscard]] bool WriteOwnDump(const char* path, const DumpOrder& order) noexcept;
/// Closes the descriptors that were reserved for a crash. Safe in signal handlers.
void ReleaseReservedDescriptors() noexcept;
} // namespace tev::platform
