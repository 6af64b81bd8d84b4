#include "base/LittleEndian.h"
#include "platform/SystemErrors.h"
#include "zip/engine/ZipCompressedBytes.h"
#include "zip/engine/ZipDecoder.h"
#include "zip/engine/ZipDirectory.h"
#include "zip/engine/ZipRecords.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <vector>

#include <zlib.h>

namespace tev::platform
{
namespace
{
constexpr std::size_t kInputSize = 64 * 1024;

/// Reads exactly so many bytes; where the archive ends before, it is damaged.
bool ReadExactly(ZipBytes& bytes, std::uint64_t position, void* buffer, std::size_t count, ZipError& error)
{
    std::size_t delivered = 0;
    if (!bytes.ReadAt(position, buffer, count, delivered))
    {
        error = {ZipFailure::System, LastSystemError()};
        return false;
    }
    return delivered == count || Fail(error, ZipFailure::Damaged);
}

struct LocalHeader
{
    std::uint64_t m_end;
    std::size_t m_nameSize;
    std::size_t m_extraSize;
};

bool ReadLocalHeader(const ZipContents& contents, const ZipHeader& header, LocalHeader& local, ZipError& error)
{
    std::array<unsigned char, kZipLocalHeaderSize> bytes;
    if (!header.isSound)
        return Fail(error, ZipFailure::Damaged);
    if (!ReadExactly(*contents.bytes, header.offset, bytes.data(), bytes.size(), error))
        return false;
    if (LoadLittleEndian<std::uint32_t>(bytes.data()) != kZipLocalMark)
        return Fail(error, ZipFailure::Damaged);
    local.m_nameSize = LoadLittleEndian<std::uint16_t>(bytes.data() + 26);
    local.m_extraSize = LoadLittleEndian<std::uint16_t>(bytes.data() + 28);
    local.m_end = header.offset + bytes.size() + local.m_nameSize + local.m_extraSize;
    return true;
}

/// The data of an entry as it is in the archive.
class ArchivedBytes final : public ZipCompressedBytes
{
public:
    ArchivedBytes(ZipBytes& archive, std::uint64_t position, std::uint64_t size)
        : m_archive(archive), m_position(position), m_left(size)
    {
    }

    bool Read(void* buffer, std::size_t count, std::size_t& delivered, ZipError& error) override
    {
        const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(count, m_left));
        delivered = 0;
        if (!ReadExactly(m_archive, m_position, buffer, wanted, error))
            return false;
        delivered = wanted;
        m_position += wanted;
        m_left -= wanted;
        return true;
    }

private:
    ZipBytes& m_archive;
    std::uint64_t m_position;
    std::uint64_t m_left;
};

class EntryReader final : public ZipReader
{
public:
    EntryReader(const ZipHeader& header, std::unique_ptr<ZipCompressedBytes> source)
        : m_source(std::move(source)),
          m_decoder(MakeZipDecoder(header.method, header.flags, header.size)),
          m_encryption(header.encryption),
          m_expected(header.checksum),
          m_left(header.size),
          m_input(kInputSize)
    {
    }

    bool Read(void* buffer, std::size_t count, std::size_t& delivered, ZipError& error) override
    {
        delivered = 0;
        m_streams.out = static_cast<unsigned char*>(buffer);
        m_streams.outLeft = static_cast<std::size_t>(std::min<std::uint64_t>(count, m_left));
        const std::size_t space = m_streams.outLeft;
        while (m_streams.outLeft == space && m_left != 0)
        {
            if (m_isAtEnd)
                return FailAsDamaged(error);
            if (!Advance(error))
                return false;
        }
        delivered = space - m_streams.outLeft;
        m_left -= delivered;
        if (m_expected)
            m_checksum = static_cast<std::uint32_t>(crc32_z(m_checksum, static_cast<const Bytef*>(buffer), delivered));
        // Checked with the last bytes and not after them, so that these are not taken for right.
        return m_left != 0 || m_isChecked || Check(error);
    }

    std::uint64_t Consumed() const override { return m_read - m_streams.inLeft; }

private:
    bool Fail(ZipError& error, ZipFailure failure) const
    {
        // A short check of the password lets one in some hundreds pass.
        if (failure == ZipFailure::Damaged && m_encryption != ZipEncryption::None)
            failure = ZipFailure::WrongPasswordOrDamaged;
        error = {failure, 0};
        return false;
    }
    bool FailAsDamaged(ZipError& error) const { return Fail(error, ZipFailure::Damaged); }

    bool Refill(ZipError& error)
    {
        if (m_streams.inLeft != 0 || m_streams.isLast)
            return true;
        std::size_t delivered = 0;
        if (!m_source->Read(m_input.data(), m_input.size(), delivered, error))
            return error.failure == ZipFailure::Damaged && FailAsDamaged(error);
        m_read += delivered;
        m_streams.in = m_input.data();
        m_streams.inLeft = delivered;
        m_streams.isLast = delivered == 0;
        return true;
    }

    bool Advance(ZipError& error)
    {
        if (!Refill(error))
            return false;
        const std::size_t inBefore = m_streams.inLeft;
        const std::size_t outBefore = m_streams.outLeft;
        switch (m_decoder->Run(m_streams))
        {
        case ZipDecoding::Running:
            // No progress with nothing to come is the end of what was cut off.
            m_isAtEnd = m_streams.isLast && m_streams.inLeft == inBefore && m_streams.outLeft == outBefore;
            return true;
        case ZipDecoding::AtEnd:
            m_isAtEnd = true;
            return true;
        case ZipDecoding::Unsupported:
            return Fail(error, ZipFailure::Unsupported);
        case ZipDecoding::NoMemory:
            error = {ZipFailure::System, kNotEnoughMemory};
            return false;
        default:
            return FailAsDamaged(error);
        }
    }

    /// There must be no more than was declared, and it must be what was packed.
    bool Check(ZipError& error)
    {
        m_isChecked = true;
        unsigned char more = 0;
        m_streams.out = &more;
        m_streams.outLeft = 1;
        while (!m_isAtEnd && m_streams.outLeft != 0)
        {
            if (!Advance(error))
                return false;
        }
        if (m_streams.outLeft == 0 || (m_expected && m_checksum != *m_expected))
            return FailAsDamaged(error);
        // The code that protects the data against changes comes behind the last of it.
        while (IsAes(m_encryption) && !m_streams.isLast)
        {
            m_streams.inLeft = 0;
            if (!Refill(error))
                return false;
        }
        return true;
    }

    const std::unique_ptr<ZipCompressedBytes> m_source;
    const std::unique_ptr<ZipDecoder> m_decoder;
    const ZipEncryption m_encryption;
    const std::optional<std::uint32_t> m_expected;
    std::uint64_t m_left;
    std::uint64_t m_read = 0;
    std::vector<unsigned char> m_input;
    ZipStreams m_streams;
    std::uint32_t m_checksum = 0;
    bool m_isAtEnd = false;
    bool m_isChecked = false;
};
} // namespace

bool FindZipData(const ZipContents& contents, const ZipHeader& header, std::uint64_t& position, ZipError& error)
{
    LocalHeader local;
    if (!ReadLocalHeader(contents, header, local, error))
        return false;
    position = local.m_end;
    const std::uint64_t limit = contents.directory->Start();
    return (position <= limit && header.compressedSize <= limit - position) || Fail(error, ZipFailure::Damaged);
}

bool ReadLocalTimes(const ZipContents& contents, const ZipHeader& header, ZipTimes& times, ZipError& error)
{
    LocalHeader local;
    if (!ReadLocalHeader(contents, header, local, error))
        return false;
    std::string extra(local.m_extraSize, '\0');
    if (!ReadExactly(*contents.bytes, local.m_end - extra.size(), extra.data(), extra.size(), error))
        return false;
    times = ZipEntryTimes(extra, header.dosDate, header.dosTime);
    return true;
}

std::unique_ptr<ZipReader> UnpackZipEntry(const ZipHeader& header, std::unique_ptr<ZipCompressedBytes> source)
{
    return std::make_unique<EntryReader>(header, std::move(source));
}

bool IsZipEntryReadable(const ZipHeader& header, bool hasPassword)
{
    const bool isEncrypted = header.encryption != ZipEncryption::None;
    return header.isSound && IsZipMethodKnown(header.method) && (header.flags & kZipPatchedFlag) == 0 &&
           (!isEncrypted || (hasPassword && IsZipEncryptionKnown(header.encryption)));
}

std::unique_ptr<ZipReader> OpenZipEntry(const ZipContents& contents, std::uint64_t index, const std::string& password,
                                        ZipError& error)
{
    const ZipHeader header = contents.directory->Header(index);
    std::uint64_t position = 0;
    if (!FindZipData(contents, header, position, error))
        return nullptr;
    const bool sharesBytes = contents.directory->SharesBytes(index);
    if (sharesBytes || (header.flags & kZipPatchedFlag) != 0 || !IsZipMethodKnown(header.method))
    {
        Fail(error, sharesBytes ? ZipFailure::Damaged : ZipFailure::Unsupported);
        return nullptr;
    }
    std::unique_ptr<ZipCompressedBytes> source;
    if (header.encryption == ZipEncryption::None)
        source = std::make_unique<ArchivedBytes>(*contents.bytes, position, header.compressedSize);
    else
        source = DecryptZipEntry(*contents.bytes, position, header, password, error);
    return source != nullptr ? UnpackZipEntry(header, std::move(source)) : nullptr;
}
} // namespace tev::platform
