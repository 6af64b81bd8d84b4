#pragma once

#include "platform/posix/crash/CrashHelperProtocol.h"

namespace tev::platform
{
/// Takes memory and descriptors in advance, once.
void PrepareOwnDump() noexcept;
/// Writes a dump of this very process, whose other threads are stopped by a signal meanwhile; threads that do not stop in
/// time are named only. False also when another dump is being written. Safe in signal handlers.
[[nodiscard]] bool WriteOwnDump(const char* path, const DumpOrder& order) noexcept;
/// Gives the descriptors back that were kept for the record of a crash. Safe in signal handlers.
void ReleaseReservedDescriptors() noexcept;
} // namespace tev::platform
