#pragma once

#include "platform/posix/files/OwnedDescriptor.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace tev::platform
{
/// An ordinary file that is read at any position. Safe from several threads at once.
class InputFile
{
public:
    /// Null, with the error in errno, when it cannot be opened or is no ordinary file.
    static std::shared_ptr<const InputFile> Open(const wchar_t* path);

    InputFile(int descriptor, std::uint64_t size) : m_descriptor(descriptor), m_size(size) {}

    /// When it was opened.
    std::uint64_t Size() const { return m_size; }
    /// Returns the number of bytes read; fewer than `count` at the end of the file, and after a failure, whose errno is in `error`.
    std::size_t ReadAt(std::uint64_t position, void* bytes, std::size_t count, int& error) const;

private:
    OwnedDescriptor m_descriptor;
    std::uint64_t m_size;
};
} // namespace tev::platform
