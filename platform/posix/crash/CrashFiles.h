#pragma once

#include <cstddef>
#include <string_view>

namespace tev::platform
{
// Shared by a process and its helper; safe in signal handlers.

/// Replaces the file by an empty one that only this user may read. -1 on failure.
int CreatePrivateFile(const char* path) noexcept;
bool WriteAllBytes(int file, const void* bytes, std::size_t size) noexcept;
/// Writes the record followed by the log's path, and leaves the file open and locked. Returns its descriptor, -1 on
/// failure.
int WriteLockedRecord(const char* path, std::string_view record, const char* logPath) noexcept;
/// Reads as much of a file as fits. Returns the size; 0 when it cannot be read.
std::size_t ReadWhole(const char* path, char* buffer, std::size_t capacity) noexcept;
} // namespace tev::platform
