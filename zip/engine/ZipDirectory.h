#pragma once

#include "zip/engine/ZipVolumeBytes.h"

#include <cstdint>
#include <optional>

// The directory of an archive, which may be split: what ends it, and how it becomes one that libzip takes.

namespace tev::platform
{
/// What the last volume says of the directory.
struct ZipDirectoryEnd
{
    std::uint32_t m_lastVolume = 0;
    std::uint64_t m_fromEnd = 0; ///< the bytes from this record to the end of the archive
    ZipPlace m_start;
    std::uint64_t m_size = 0;
    std::uint64_t m_count = 0;
    std::optional<ZipPlace> m_end64; ///< where the numbers that do not fit stand
    ZipBuffer m_comment;
    bool m_isCut = false; ///< the comment should be longer
};

/// Looks for the end in the last bytes of an archive. Nothing where there is none.
std::optional<ZipDirectoryEnd> FindZipEnd(const ZipBuffer& tail);
/// As many bytes as that takes.
constexpr std::size_t kLongestZipEnd = 20 + 22 + 0xFFFF;

/// Takes the directory apart and makes one for all volumes in one, which libzip takes and shows the names of, and only those
/// that are some.
class ZipDirectoryRewriter
{
public:
    ZipDirectoryRewriter(ZipVolumeBytes& volumes, const ZipDirectoryEnd& end) : m_volumes(volumes), m_end(end) {}

    [[nodiscard]] bool Rewrite(ZipError& error);

    /// Where the old one begins, in the sum of all volumes.
    std::uint64_t Start() const { return m_start; }
    /// Whether libzip would not do as well with the old one.
    bool IsMended() const { return m_isMended; }
    /// Whether there are bytes before the first entry, such as a program's, which saving would lose.
    bool HasPrefix() const { return m_firstEntry != 0; }
    ZipBuffer TakeDirectory() { return std::move(m_directory); }

private:
    struct Numbers;

    bool ReadEnd64(ZipError& error);
    bool FindStart();
    bool TakeMore(std::size_t count);
    bool RewriteHeader(ZipError& error);
    bool SplitExtra(std::size_t at, std::size_t size, Numbers& numbers, ZipBuffer& others);
    bool TakeNumbers(std::size_t at, std::size_t end, Numbers& numbers) const;
    std::string MendedName(std::size_t nameSize);
    bool WriteHeader(const Numbers& numbers, const ZipBuffer& others, std::size_t nameSize, std::size_t commentAt);
    void WriteEnd();

    ZipVolumeBytes& m_volumes;
    ZipDirectoryEnd m_end;
    std::uint64_t m_start = 0;
    std::uint64_t m_shift = 0; ///< what stands before the archive and is not counted in it
    std::uint64_t m_firstEntry = 0;
    std::uint64_t m_at = 0; ///< how far the directory is read
    std::uint64_t m_limit = 0;
    ZipBuffer m_block;
    std::uint64_t m_blockStart = 0;
    ZipBuffer m_header;
    ZipBuffer m_directory;
    bool m_isMended = false;
};
} // namespace tev::platform
