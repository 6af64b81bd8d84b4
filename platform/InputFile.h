#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace tev::platform
{
/// An ordinary file that is read at any position. Safe from several threads at once.
class InputFile
{
public:
    /// Null, with the error in errno, when it cannot be opened or is no ordinary file. Never waits, for a pipe neither.
    static std::shared_ptr<const InputFile> Open(const wchar_t* path);

    virtual ~InputFile() = default;
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    /// When it was opened.
    virtual std::uint64_t Size() const = 0;
    /// Returns the number of bytes read; fewer than `count` at the end of the file, and after a failure, whose errno is in
    /// `error`.
    virtual std::size_t ReadAt(std::uint64_t position, void* bytes, std::size_t count, int& error) const = 0;

protected:
    InputFile() = default;
};
} // namespace tev::platform
