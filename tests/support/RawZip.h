#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <zlib.h>

namespace tev::test
{
/// One entry of an archive that is put together byte by byte, so that it may lie. What is not given is as it should be.
struct RawEntry
{
    std::string name;
    std::string contents;
    bool isDeflated = false;
    std::uint16_t flags = 0x0800; ///< the name is UTF-8
    std::uint32_t attributes = 0;
    std::string extra = {};
    std::uint8_t host = 3; ///< Unix
    std::optional<std::string> packed = {};
    std::optional<std::uint32_t> size = {};
    std::optional<std::uint32_t> packedSize = {};
    std::optional<std::uint32_t> checksum = {};
    std::optional<std::uint16_t> method = {};
    /// The entry whose header and data this one shares, instead of bytes of its own.
    std::optional<std::size_t> shares = {};
};

inline std::string LittleEndianText(std::uint64_t value, int size)
{
    std::string text;
    for (int i = 0; i < size; ++i)
        text += static_cast<char>(value >> 8 * i & 0xFF);
    return text;
}

inline std::string RawDeflate(const std::string& contents)
{
    z_stream stream = {};
    deflateInit2(&stream, 9, Z_DEFLATED, -MAX_WBITS, 9, Z_DEFAULT_STRATEGY);
    std::string packed(deflateBound(&stream, contents.size()), '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(contents.data()));
    stream.avail_in = static_cast<uInt>(contents.size());
    stream.next_out = reinterpret_cast<Bytef*>(packed.data());
    stream.avail_out = static_cast<uInt>(packed.size());
    deflate(&stream, Z_FINISH);
    packed.resize(stream.total_out);
    deflateEnd(&stream);
    return packed;
}

inline std::string RawZip(const std::vector<RawEntry>& entries)
{
    std::string archive;
    std::string directory;
    std::vector<std::size_t> offsets;
    std::vector<std::string> packed;
    for (const RawEntry& entry : entries)
    {
        const std::size_t offset = entry.shares ? offsets[*entry.shares] : archive.size();
        const std::string data = entry.shares       ? packed[*entry.shares]
                                 : entry.packed     ? *entry.packed
                                 : entry.isDeflated ? RawDeflate(entry.contents)
                                                    : entry.contents;
        const auto bytes = reinterpret_cast<const Bytef*>(entry.contents.data());
        const std::string fields =
            LittleEndianText(20, 2) + LittleEndianText(entry.flags, 2) +
            LittleEndianText(entry.method.value_or(entry.isDeflated ? 8 : 0), 2) + LittleEndianText(0, 2) +
            LittleEndianText(0x5A21, 2) + // 2025-01-01
            LittleEndianText(entry.checksum.value_or(crc32_z(0, bytes, entry.contents.size())), 4) +
            LittleEndianText(entry.packedSize.value_or(data.size()), 4) +
            LittleEndianText(entry.size.value_or(entry.contents.size()), 4) + LittleEndianText(entry.name.size(), 2) +
            LittleEndianText(entry.extra.size(), 2);
        if (!entry.shares)
            archive += "PK\3\4" + fields + entry.name + entry.extra + data;
        directory += "PK\1\2" + LittleEndianText(entry.host << 8 | 20, 2) + fields + std::string(6, '\0') +
                     LittleEndianText(entry.attributes, 4) + LittleEndianText(offset, 4) + entry.name + entry.extra;
        offsets.push_back(offset);
        packed.push_back(data);
    }
    return archive + directory + "PK\5\6" + std::string(4, '\0') + LittleEndianText(entries.size(), 2) +
           LittleEndianText(entries.size(), 2) + LittleEndianText(directory.size(), 4) +
           LittleEndianText(archive.size(), 4) + std::string(2, '\0');
}
} // namespace tev::test
