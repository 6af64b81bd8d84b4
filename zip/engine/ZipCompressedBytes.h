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

protected:
    ZipCompressedBytes() = default;
};

/// Unpacks what comes from there.
std::unique_ptr<ZipReader> UnpackZipEntry(const ZipHeader& header, std::unique_ptr<ZipCompressedBytes> source);

/// Where the data of the entry begins in the archive. Fails where the local header is damaged, or the data would not end
/// before the directory.
[[nodiscard]] bool FindZipData(const ZipContents& contents, const ZipHeader& header, std::uint64_t& position,
                               ZipError& error);

/// Whether libzip decrypts it.
bool IsZipEncryptionKnown(ZipEncryption encryption);
/// Decrypts an entry by libzip. Null with the error where libzip does not know the encryption, or the password is missing
/// or wrong.
std::unique_ptr<ZipCompressedBytes> DecryptZipEntry(ZipBytes& archive, std::uint64_t position, const ZipHeader& header,
                                                    const std::string& password, ZipError& error);
} // namespace tev::platform
