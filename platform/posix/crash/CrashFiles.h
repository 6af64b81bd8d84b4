#pragma once

#include <cstddef>
#include <string_view>

namespace tev::platform
{
// Shared by a process and its helper; safe in signal handlers.

/// Creates or empties the file, for this user alone. -1 on failure.
int CreatePrivateFile(const char* path) noexcept;
bool WriteAllBytes(int file, const void* bytes, std::size_t size) noexcept;
/// Writes the record, with the log's path behind it, and leaves the file open and locked: the answer is its descriptor,
/// -1 on failure.
int WriteLockedRecord(const char* path, std::string_view record, const char* logPath) noexcept;
/// As much of a file as there is room for; 0 when it cannot be read.
std::size_t ReadWhole(const char* path, char* buffer, std::size_t capacity) noexcept;
} // namespace tev::platform
