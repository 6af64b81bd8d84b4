#pragma once

#include "platform/DumpFile.h"

#include <cstddef>
#include <string_view>

namespace tev::platform
{
// Shared by a process and its helper; safe in signal handlers.

/// Replaces the file by an empty one that only this user may read. -1 on failure.
int CreatePrivateFile(const char* path) noexcept;
bool WriteAllBytes(int file, const void* bytes, std::size_t size) noexcept;
/// Writes the record followed by the notes, and leaves the file open and locked. Returns its descriptor, -1 on failure.
int WriteLockedRecord(const char* path, std::string_view record, std::string_view notes) noexcept;
/// Reads as much of a file as fits. Returns the size; 0 when it cannot be read.
std::size_t ReadWhole(const char* path, char* buffer, std::size_t capacity) noexcept;
/// Raises the limits of descriptors, memory and the size of files as far as is allowed. Writing a file beyond the limit then
/// fails on the calling thread instead of raising a signal.
void LiftLimits() noexcept;

/// The file of a dump at a path; removed again unless it is complete.
class PrivateDumpFile final : public DumpFile
{
public:
    explicit PrivateDumpFile(const char* path) noexcept;
    ~PrivateDumpFile();
    PrivateDumpFile(const PrivateDumpFile&) = delete;
    PrivateDumpFile& operator=(const PrivateDumpFile&) = delete;

    bool IsOpen() const noexcept { return m_file >= 0; }
    void Keep() noexcept { m_isKept = true; }
    bool Append(const void* bytes, std::size_t size) noexcept override;
    bool Overwrite(const void* bytes, std::size_t size) noexcept override;

private:
    const char* const m_path;
    const int m_file;
    bool m_isKept = false;
};
} // namespace tev::platform
