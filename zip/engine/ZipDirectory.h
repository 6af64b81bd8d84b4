#pragma once

#include "objects/CXCriticalSection.h"
#include "zip/engine/ZipEngine.h"
#include "zip/engine/ZipVolumeBytes.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The directory of an archive, which may be split. It is read here and nowhere else, so that all readers agree about what
// an archive holds.

namespace tev::platform
{
/// The record at the end of an archive.
struct ZipDirectoryEnd
{
    std::uint32_t m_lastVolume = 0;
    std::uint64_t m_fromEnd = 0; ///< the bytes from this record to the end of the archive
    ZipPlace m_start;
    std::uint64_t m_size = 0;
    std::uint64_t m_count = 0;
    std::optional<ZipPlace> m_end64; ///< where the numbers that do not fit are
    ZipBuffer m_comment;
    bool m_isCut = false; ///< the comment should be longer
};

/// The records that may be the end, in the order in which they are to be tried: first the last one whose comment reaches
/// the end of the file, then the others from the last one on.
std::vector<ZipDirectoryEnd> FindZipEnds(const ZipBuffer& tail);
/// The bytes at the end of an archive in which that record lies.
constexpr std::size_t kLongestZipEnd = 20 + 22 + 0xFFFF;

/// One header of the directory.
struct ZipHeader
{
    std::string name; ///< UTF-8 where the archive is sound, with '/' between components; untrusted
    ZipEntryKind kind = ZipEntryKind::File;
    std::uint8_t host = 0; ///< the system that made the entry: 0 DOS, 3 Unix, ...
    std::uint32_t attributes = 0;
    std::uint16_t flags = 0;
    std::uint16_t method = 0; ///< of compression, also where the entry is encrypted
    std::uint16_t dosTime = 0;
    std::uint16_t dosDate = 0;
    ZipEncryption encryption = ZipEncryption::None;
    std::optional<std::uint32_t> checksum; ///< entries encrypted by the second form of AES have none
    std::uint64_t size = 0;
    std::uint64_t compressedSize = 0;
    std::uint64_t offset = 0;   ///< of its local header in the sum of all volumes
    bool hasLocalTimes = false; ///< the local header has times that the directory has not
    bool isSound = false;       ///< its numbers lie within the archive

    /// The nine bits of an entry made on Unix.
    std::optional<unsigned> Permissions() const;
};

/// Immutable once it is read. Takes the memory of the directory, and eight bytes for each entry.
class ZipDirectory
{
public:
    /// Null when there is no directory at that end, or it is damaged. What is wrong in a single header makes that entry
    /// unsound; a wrong count does not matter where the headers reach from the start to the end of the directory.
    static std::shared_ptr<const ZipDirectory> Read(ZipVolumeBytes& volumes, const ZipDirectoryEnd& end,
                                                    ZipError& error);

    std::uint64_t Count() const { return m_headers.size(); }
    ZipHeader Header(std::uint64_t index) const;
    ZipTimes Times(std::uint64_t index) const;
    // Parts of the header at less cost.
    std::string Name(std::uint64_t index) const;
    ZipEntryKind Kind(std::uint64_t index) const;
    /// Whether the entry reaches into a later one, or begins where an earlier one of the directory does: entries that
    /// share bytes of the archive multiply them.
    bool SharesBytes(std::uint64_t index) const;

    std::uint32_t LastVolume() const { return static_cast<std::uint32_t>(m_volumeStarts.size() - 1); }
    /// Where the directory begins, in the sum of all volumes.
    std::uint64_t Start() const { return m_start; }
    /// Whether there are bytes before the first entry, such as a program's, which saving would lose.
    bool HasPrefix() const { return FirstEntry() != 0; }
    /// Whether libzip, which believes the end record and nothing else, reads the archive as we do.
    bool IsPlain() const;
    /// Whether the names are chosen so that libzip would take quadratic time over them.
    bool FloodsLibZip() const;
    /// A directory for all volumes in one that libzip accepts. Of names that it refuses, or would read otherwise, it gets
    /// others.
    ZipBuffer Rewritten() const;

private:
    class Reading;

    /// What is in a header in 32 bits, or in its extra field in 64.
    struct Numbers
    {
        std::uint64_t m_size = 0;
        std::uint64_t m_compressedSize = 0;
        ZipPlace m_place;
        bool m_isComplete = true;

        void TakeField(std::string_view field);
    };

    Numbers NumbersOf(std::size_t header) const;
    std::optional<std::uint64_t> OffsetOf(const Numbers& numbers) const;
    std::string_view NameOf(std::size_t header) const;
    std::string_view ExtraOf(std::size_t header) const;
    std::vector<bool> FindShared() const;
    /// Where the first of all local headers lies; the directory where there is none.
    std::uint64_t FirstEntry() const;
    bool NeedsOtherHeader(std::size_t header) const;
    void WriteHeader(std::size_t header, std::uint64_t firstEntry, ZipBuffer& directory) const;
    void WriteEnd(ZipBuffer& directory) const;

    ZipBuffer m_bytes; ///< the headers
    std::vector<std::size_t> m_headers;
    std::vector<std::uint64_t> m_volumeStarts;
    ZipBuffer m_comment;
    std::uint64_t m_start = 0;
    std::uint64_t m_shift = 0; ///< what was put before the archive without changing its offsets
    bool m_isEndPlain = true;  ///< the end record says what is there
    mutable LibraryLock m_sharedLock;
    mutable std::vector<bool> m_isShared X_GUARDED_BY(m_sharedLock); ///< empty until it is asked for
};

/// An archive as it is read.
struct ZipContents
{
    std::shared_ptr<const ZipDirectory> directory;
    std::shared_ptr<ZipBytes> bytes; ///< all volumes, one behind the other
};

/// Reads an entry: null, or reading fails, when it is damaged, its password is wrong, or its method is not supported. The
/// contents must outlive the reader.
std::unique_ptr<ZipReader> OpenZipEntry(const ZipContents& contents, std::uint64_t index, const std::string& password,
                                        ZipError& error);
/// Whether OpenZipEntry could succeed, as far as the directory and having any password tell.
bool IsZipEntryReadable(const ZipHeader& header, bool hasPassword);
/// The times that only the local header has.
[[nodiscard]] bool ReadLocalTimes(const ZipContents& contents, const ZipHeader& header, ZipTimes& times,
                                  ZipError& error);
} // namespace tev::platform
