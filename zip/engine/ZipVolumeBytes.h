#pragma once

#include "zip/engine/ZipVolumes.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

// The volumes of a split archive as one file.

namespace tev::platform
{
using ZipBuffer = std::vector<unsigned char>;

/// A place in a split archive.
struct ZipPlace
{
    std::uint32_t m_volume = 0;
    std::uint64_t m_offset = 0;
};

/// All volumes, one behind the other. One of them, and the last, are open at a time.
class ZipVolumeBytes final : public ZipBytes
{
public:
    ZipVolumeBytes(std::unique_ptr<ZipBytes> last, ZipVolumeOpener open);

    /// Finds all volumes; the others may be called then.
    [[nodiscard]] bool Find(std::uint32_t lastVolume, ZipError& error);

    std::uint64_t Size() const override { return m_size; }
    /// The positions of the volumes in the sum of them.
    const std::vector<std::uint64_t>& Starts() const { return m_starts; }
    /// The place in the sum of all volumes; empty where it lies in none.
    std::optional<std::uint64_t> Position(const ZipPlace& place) const;
    [[nodiscard]] bool ReadAt(std::uint64_t offset, void* buffer, std::size_t count, std::size_t& delivered) override;
    /// Reads exactly so many bytes; false with errno 0 where there are not as many.
    [[nodiscard]] bool ReadExactly(std::uint64_t offset, std::size_t count, ZipBuffer& bytes);

private:
    ZipBytes* OpenVolume(std::uint32_t number);

    std::unique_ptr<ZipBytes> m_last;
    ZipVolumeOpener m_open;
    std::vector<std::uint64_t> m_starts;
    std::uint64_t m_size = 0; ///< known when all are found
    std::unique_ptr<ZipBytes> m_opened;
    std::uint32_t m_openedNumber = 0;
};

/// The bytes of an archive up to where its directory begins, and behind them another one.
std::unique_ptr<ZipBytes> WithDirectory(std::shared_ptr<ZipBytes> archive, std::uint64_t start, ZipBuffer directory);
} // namespace tev::platform
