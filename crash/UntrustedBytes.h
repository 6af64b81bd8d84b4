#pragma once

#include "platform/InputFile.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace tev
{
/// A part of bytes.
struct ByteRange
{
    std::uint64_t offset = 0;
    std::uint64_t size = 0;
};

/// The bytes of a file or of a block, which are untrusted input. Of a file little is in memory at a time, whatever its size.
/// One thread at a time.
class UntrustedBytes
{
public:
    UntrustedBytes() = default; ///< none
    explicit UntrustedBytes(std::vector<unsigned char> block);
    /// Keeps the file open.
    explicit UntrustedBytes(std::shared_ptr<const platform::InputFile> file);

    std::uint64_t Size() const noexcept { return m_size; }
    bool Has(std::uint64_t offset, std::uint64_t size) const noexcept
    {
        return offset <= m_size && size <= m_size - offset;
    }
    bool Has(const ByteRange& range) const noexcept { return Has(range.offset, range.size); }

    /// False, and the target is in no known state, where not all of the bytes are there or can be read.
    [[nodiscard]] bool Read(std::uint64_t offset, void* target, std::size_t size) const noexcept;
    template <class T>
    [[nodiscard]] bool Read(std::uint64_t offset, T& value) const noexcept
    {
        return Read(offset, &value, sizeof value);
    }
    /// The text up to a zero byte within the range, of at most `longest` bytes.
    [[nodiscard]] bool ReadText(const ByteRange& range, std::size_t longest, std::string& text) const;
    /// The errno of the first read that failed; 0 when none did.
    int Error() const noexcept { return m_error; }

private:
    /// What was read last, in several places: tables refer to one another.
    struct Window
    {
        std::vector<unsigned char> m_bytes;
        std::uint64_t m_start = 0;
        std::size_t m_size = 0;
    };

    const Window* Find(std::uint64_t offset, std::size_t size) const noexcept;

    std::shared_ptr<const platform::InputFile> m_file;
    std::uint64_t m_size = 0;
    mutable std::array<Window, 2> m_windows; ///< of a block the first one is all of it
    mutable std::size_t m_next = 0;          ///< the window that was not used last
    mutable int m_error = 0;
};
} // namespace tev
