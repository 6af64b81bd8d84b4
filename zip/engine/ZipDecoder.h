#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace tev::platform
{
/// Both parts advance.
struct ZipStreams
{
    const unsigned char* in = nullptr;
    std::size_t inLeft = 0;
    bool isLast = false; ///< nothing follows the input
    unsigned char* out = nullptr;
    std::size_t outLeft = 0;
};

enum class ZipDecoding
{
    Running, ///< wants more input, or more space
    AtEnd,
    Damaged,
    Unsupported, ///< also what would take too much memory
    NoMemory
};

/// Unpacks the data of one entry. One thread at a time.
class ZipDecoder
{
public:
    virtual ~ZipDecoder() = default;
    ZipDecoder(const ZipDecoder&) = delete;
    ZipDecoder& operator=(const ZipDecoder&) = delete;

    /// Advances until the input is used up, the space is full, or the end is reached.
    virtual ZipDecoding Run(ZipStreams& streams) = 0;

protected:
    ZipDecoder() = default;
};

/// The methods stored, deflated, bzip2, LZMA, XZ and Zstandard; null for others and where memory is short. `size` is that of the
/// contents.
bool IsZipMethodKnown(std::uint16_t method);
std::unique_ptr<ZipDecoder> MakeZipDecoder(std::uint16_t method, std::uint16_t flags, std::uint64_t size);
} // namespace tev::platform
