#pragma once

#include "platform/MinidumpWriter.h"

namespace tev::platform
{
constexpr std::size_t kMostNotes = 4096;

/// Reads the build identifier from the notes of a module that is loaded at `base`, by way of `notes`. Returns its size, at
/// most kLongestBuildId; 0 when there is none. Safe in signal handlers.
std::size_t ReadBuildId(DumpedProcess& process, std::uint64_t base, unsigned char (&notes)[kMostNotes],
                        unsigned char* buildId) noexcept;
} // namespace tev::platform
