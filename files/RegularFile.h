#pragma once

#include "files/CXFile.h"

namespace tev
{
/// A regular file that is read, and that other programs may write, replace or delete meanwhile. A pipe or a device of that
/// name is refused, and never blocks. One thread at a time.
class RegularFile final : public CXFile
{
public:
    RegularFile();
    /// False, with the cause in `error`, when it cannot be opened; fileInvalidFile for a pipe or a device.
    bool Open(const wchar_t* path, CXFileException& error);
    bool IsOpen() const noexcept { return m_handle != nullptr; }

private:
    using CXFile::Open;
};
} // namespace tev
