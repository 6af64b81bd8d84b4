#pragma once

#include "base/LittleEndian.h"
#include "zip/engine/ZipVolumeBytes.h"

#include <cstddef>
#include <cstdint>

// The records of a ZIP archive.

namespace tev::platform
{
constexpr std::uint32_t kZipLocalMark = 0x04034B50;
constexpr std::uint32_t kZipHeaderMark = 0x02014B50;
constexpr std::uint32_t kZipSignatureMark = 0x05054B50;
constexpr std::uint32_t kZipEndMark = 0x06054B50;
constexpr std::uint32_t kZipEnd64Mark = 0x06064B50;
constexpr std::uint32_t kZipLocatorMark = 0x07064B50;
constexpr std::size_t kZipLocalHeaderSize = 30;
constexpr std::size_t kZipHeaderSize = 46;
constexpr std::size_t kZipEndSize = 22;
constexpr std::size_t kZipEnd64Size = 56;
constexpr std::size_t kZipLocatorSize = 20;

constexpr std::uint16_t kZipDeflated = 8;
constexpr std::uint16_t kZipAesMethod = 99;
constexpr unsigned kZipPermissions = 0777; ///< of the Unix mode

constexpr std::uint16_t kZip64Field = 0x0001;
constexpr std::uint16_t kZipFull16 = 0xFFFF; ///< the number is in 64 bits elsewhere
constexpr std::uint32_t kZipFull32 = 0xFFFFFFFF;

constexpr std::uint16_t kZipEncryptedFlag = 0x0001;
constexpr std::uint16_t kZipEndMarkedFlag = 0x0002; ///< of LZMA: the stream has a mark at its end
constexpr std::uint16_t kZipPatchedFlag = 0x0020;
constexpr std::uint16_t kZipStronglyEncryptedFlag = 0x0040;
constexpr std::uint16_t kZipUtf8Flag = 0x0800;

template <class T>
void AppendLittleEndian(ZipBuffer& bytes, T value)
{
    bytes.resize(bytes.size() + sizeof value);
    StoreLittleEndian(bytes.data() + bytes.size() - sizeof value, value);
}
} // namespace tev::platform
