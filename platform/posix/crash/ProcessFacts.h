#pragma once

#include "platform/MinidumpWriter.h"

#include <sys/types.h>

namespace tev::platform
{
/// Fills in what a dump says of the machine and of the process. Safe in signal handlers.
void TakeFacts(pid_t process, DumpFacts& facts) noexcept;
/// How long the process has been running; 0 when unknown. Safe in signal handlers.
std::uint64_t SecondsSinceStart(pid_t process) noexcept;
} // namespace tev::platform
