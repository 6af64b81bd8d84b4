#pragma once

#include <cstddef>

namespace tev::platform
{
/// The file of a dump.
class DumpFile
{
public:
    virtual bool Append(const void* bytes, std::size_t size) noexcept = 0;
    /// Overwrites the start of the file.
    virtual bool Overwrite(const void* bytes, std::size_t size) noexcept = 0;

protected:
    ~DumpFile() = default;
};
} // namespace tev::platform
