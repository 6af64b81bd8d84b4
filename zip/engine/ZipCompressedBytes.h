#pragma once

#include "zip/engine/ZipDirectory.h"

#include <memory>
#include <string>

// Where the data of an entry comes from before it is unpacked.

namespace tev::platform
{
/// The compressed bytes of one entry, from the first to the last. One thread at a time.
class ZipCompressedBytes
{
public:
    virtual ~ZipCompressedBytes() = default;
    ZipCompressedBytes(const ZipCompressedBytes&) = delete;
    ZipCompressedBytes& operator=(const ZipCompressedBytes&) = delete;

    /// 0 bytes and true: the end.
    [[nodiscard]] virtual bool Read(void* buffer, std::size_t count, std::size_t& delivered, ZipError& error) = 0;
    /// The bytes of the archive that were read for them where the bytes are unpacked already; else 0.
    virtual std::uint64_t Consumed() const { return 0; }

protected:
    ZipCompressedBytes() = default;
};

/// Unpacks what comes from there. `isUnpacked`: it comes unpacked already.
std::unique_ptr<ZipReader> UnpackZipEntry(const ZipHeader& header, std::unique_ptr<ZipCompressedBytes> source,
                                          bool isUnpacked);

/// Where the data of the entry begins in the archive. Checks the local header.
[[nodiscard]] bool FindZipData(const ZipContents& contents, const ZipHeader& header, std::uint64_t& position,
                               ZipError& error);

/// Decrypts an entry by libzip, and unpacks it where `isUnpacked` says so. Null with the error where libzip knows the
/// encryption or the method not, or the password is missing or wrong.
std::unique_ptr<ZipCompressedBytes> DecryptZipEntry(ZipBytes& archive, std::uint64_t position, const ZipHeader& header,
                                                    const std::string& password, bool isUnpacked, ZipError& error);
} // namespace tev::platform
