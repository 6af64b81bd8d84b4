#include "zip/engine/ZipDirectory.h"

#include "base/LittleEndian.h"
#include "platform/SystemErrors.h"
#include "zip/engine/ZipFields.h"
#include "zip/engine/ZipRecords.h"

#include <algorithm>
#include <cerrno>
#include <limits>

namespace tev::platform
{
namespace
{
constexpr std::size_t kDirectoryBlockSize = 256 * 1024;
constexpr std::size_t kMostEnds = 64;     // that are tried
constexpr std::size_t kSignatureSize = 6; // the mark, and the size of the rest

/// Fails with the system's error, or as damaged where there is none.
bool FailReading(ZipError& error)
{
    error = errno != 0 ? ZipError{ZipFailure::System, LastSystemError()} : ZipError{ZipFailure::Damaged, 0};
    return false;
}

ZipDirectoryEnd EndAt(const ZipBuffer& tail, std::size_t at)
{
    const unsigned char* const record = tail.data() + at;
    ZipDirectoryEnd end;
    end.m_lastVolume = LoadLittleEndian<std::uint16_t>(record + 4);
    end.m_fromEnd = tail.size() - at;
    end.m_start.m_volume = LoadLittleEndian<std::uint16_t>(record + 6);
    end.m_count = LoadLittleEndian<std::uint16_t>(record + 10);
    end.m_size = LoadLittleEndian<std::uint32_t>(record + 12);
    end.m_start.m_offset = LoadLittleEndian<std::uint32_t>(record + 16);
    const std::size_t commentSize = LoadLittleEndian<std::uint16_t>(record + 20);
    const std::size_t commentAt = at + kZipEndSize;
    end.m_isCut = commentSize > tail.size() - commentAt;
    const auto comment = tail.begin() + static_cast<std::ptrdiff_t>(commentAt);
    end.m_comment.assign(comment, end.m_isCut ? tail.end() : comment + static_cast<std::ptrdiff_t>(commentSize));
    if (at >= kZipLocatorSize && LoadLittleEndian<std::uint32_t>(record - kZipLocatorSize) == kZipLocatorMark)
    {
        const unsigned char* const locator = record - kZipLocatorSize;
        end.m_end64 =
            ZipPlace{LoadLittleEndian<std::uint32_t>(locator + 4), LoadLittleEndian<std::uint64_t>(locator + 8)};
        const auto volumes = LoadLittleEndian<std::uint32_t>(locator + 16);
        if (end.m_lastVolume == kZipFull16)
            end.m_lastVolume = std::max(volumes, 1U) - 1;
    }
    return end;
}

bool IsMadeOnDos(std::uint8_t host)
{
    constexpr std::uint8_t kDosHosts[] = {0, 6, 10, 14}; // DOS, OS/2, NTFS, VFAT
    return std::find(std::begin(kDosHosts), std::end(kDosHosts), host) != std::end(kDosHosts);
}

bool IsMadeOnUnix(std::uint8_t host)
{
    constexpr std::uint8_t kUnix = 3;
    constexpr std::uint8_t kDarwin = 19;
    return host == kUnix || host == kDarwin;
}

/// The flags of the field for times are those of its form in the local header, which may have more of them.
bool HasLocalTimes(std::string_view extra)
{
    constexpr unsigned char kLocalFlags = 6;
    const std::string_view field = FindZipField(extra, kZipTimestampField);
    return !field.empty() && (static_cast<unsigned char>(field[0]) & kLocalFlags) != 0;
}

/// How an entry is encrypted. The field for AES has the method of compression then.
void ReadEncryption(std::string_view extra, ZipHeader& header)
{
    constexpr std::uint16_t kAesField = 0x9901;
    constexpr std::size_t kAesFieldSize = 7;
    constexpr std::uint16_t kSecondForm = 2;
    constexpr ZipEncryption kStrengths[] = {ZipEncryption::Aes128, ZipEncryption::Aes192, ZipEncryption::Aes256};
    if ((header.flags & kZipEncryptedFlag) == 0)
        return;
    header.encryption =
        (header.flags & kZipStronglyEncryptedFlag) != 0 ? ZipEncryption::Unknown : ZipEncryption::Traditional;
    if (header.method != kZipAesMethod)
        return;
    header.encryption = ZipEncryption::Unknown;
    const std::string_view field = FindZipField(extra, kAesField);
    if (field.size() < kAesFieldSize)
        return;
    const auto* const bytes = reinterpret_cast<const unsigned char*>(field.data());
    const unsigned strength = bytes[4];
    if (strength >= 1 && strength <= std::size(kStrengths))
        header.encryption = kStrengths[strength - 1];
    header.method = LoadLittleEndian<std::uint16_t>(bytes + 5);
    if (LoadLittleEndian<std::uint16_t>(bytes) == kSecondForm)
        header.checksum.reset();
}
} // namespace

std::vector<ZipDirectoryEnd> FindZipEnds(const ZipBuffer& tail)
{
    std::vector<ZipDirectoryEnd> ends;
    std::size_t exact = 0;
    for (std::size_t at = tail.size() < kZipEndSize ? 0 : tail.size() - kZipEndSize + 1;
         at-- > 0 && ends.size() < kMostEnds;)
    {
        if (LoadLittleEndian<std::uint32_t>(tail.data() + at) != kZipEndMark)
            continue;
        ZipDirectoryEnd end = EndAt(tail, at);
        const bool isExact = at + kZipEndSize + end.m_comment.size() == tail.size() && !end.m_isCut;
        const auto position = ends.begin() + static_cast<std::ptrdiff_t>(isExact ? exact : ends.size());
        exact += isExact ? 1 : 0;
        ends.insert(position, std::move(end));
    }
    return ends;
}

std::optional<unsigned> ZipHeader::Permissions() const
{
    const std::uint32_t mode = attributes >> 16;
    return IsMadeOnUnix(host) && mode != 0 ? std::optional(mode & kZipPermissions) : std::nullopt;
}

void ZipDirectory::Numbers::TakeField(std::string_view field)
{
    const auto* next = reinterpret_cast<const unsigned char*>(field.data());
    const unsigned char* const end = next + field.size();
    for (std::uint64_t* const number : {&m_size, &m_compressedSize, &m_place.m_offset})
    {
        if (*number != kZipFull32)
            continue;
        if (end - next < 8)
        {
            m_isComplete = false;
            return;
        }
        *number = LoadLittleEndian<std::uint64_t>(next);
        next += 8;
    }
    if (m_place.m_volume == kZipFull16 && end - next >= 4)
        m_place.m_volume = LoadLittleEndian<std::uint32_t>(next);
}

class ZipDirectory::Reading
{
public:
    Reading(ZipVolumeBytes& volumes, const ZipDirectoryEnd& end, ZipDirectory& directory, ZipError& error)
        : m_volumes(volumes), m_end(end), m_directory(directory), m_error(error)
    {
    }

    bool Run()
    {
        if (!FindEnd64() || !FindStart() || !ReadHeaders())
            return false;
        m_directory.m_volumeStarts = m_volumes.Starts();
        m_directory.m_comment = m_end.m_comment;
        m_directory.m_isEndPlain = m_isPlain && !m_end.m_isCut && m_directory.m_shift == 0;
        return true;
    }

private:
    bool HasMark(std::uint64_t at, std::uint32_t mark)
    {
        ZipBuffer bytes;
        return m_volumes.ReadExactly(at, sizeof mark, bytes) && LoadLittleEndian<std::uint32_t>(bytes.data()) == mark;
    }

    /// Where the directory must end, and its numbers where they do not fit into the record of the end.
    bool FindEnd64()
    {
        m_limit = m_volumes.Size() - m_end.m_fromEnd;
        if (!m_end.m_end64)
            return true;
        const std::uint64_t locator = m_limit - kZipLocatorSize;
        std::optional<std::uint64_t> at = m_volumes.Position(*m_end.m_end64);
        if (!at || *at >= locator || !HasMark(*at, kZipEnd64Mark))
            at = FindMovedEnd64(locator);
        const bool isNeeded = m_end.m_count == kZipFull16 || m_end.m_size == kZipFull32 ||
                              m_end.m_start.m_offset == kZipFull32 || m_end.m_start.m_volume == kZipFull16;
        if (!at)
            return !isNeeded || FailReading(m_error);
        m_limit = *at;
        ZipBuffer record;
        if (!isNeeded)
            return true;
        if (!m_volumes.ReadExactly(*at, kZipEnd64Size, record))
            return FailReading(m_error);
        m_end.m_start.m_volume = LoadLittleEndian<std::uint32_t>(record.data() + 20);
        m_end.m_count = LoadLittleEndian<std::uint64_t>(record.data() + 32);
        m_end.m_size = LoadLittleEndian<std::uint64_t>(record.data() + 40);
        m_end.m_start.m_offset = LoadLittleEndian<std::uint64_t>(record.data() + 48);
        return true;
    }

    /// In an archive behind something else the record is not where its locator says, but just before the locator.
    std::optional<std::uint64_t> FindMovedEnd64(std::uint64_t locator)
    {
        if (m_end.m_lastVolume != 0 || locator < kZipEnd64Size)
            return std::nullopt;
        const std::uint64_t at = locator - kZipEnd64Size;
        return HasMark(at, kZipEnd64Mark) ? std::optional(at) : std::nullopt;
    }

    /// When something was put before an archive, such as a program that unpacks it, all of it lies further behind than its
    /// offsets say; the directory still ends at its end.
    bool FindStart()
    {
        errno = 0;
        const std::optional<std::uint64_t> declared = m_volumes.Position(m_end.m_start);
        const auto isStart = [this](std::uint64_t at) {
            return at == m_limit ? m_end.m_count == 0 : HasMark(at, kZipHeaderMark) || HasMark(at, kZipSignatureMark);
        };
        if (declared && *declared <= m_limit && isStart(*declared))
        {
            m_directory.m_start = *declared;
            return true;
        }
        const auto startsBefore = [&](std::uint64_t end) {
            const std::uint64_t moved = end - m_end.m_size;
            if (end < m_end.m_size || moved < m_end.m_start.m_offset || !isStart(moved))
                return false;
            m_directory.m_start = moved;
            m_directory.m_shift = moved - m_end.m_start.m_offset;
            return true;
        };
        // The declared size counts a signature or not.
        const bool isFound =
            m_end.m_lastVolume == 0 && (startsBefore(m_limit) || startsBefore(FindSignature().value_or(m_limit)));
        return isFound || FailReading(m_error);
    }

    /// Where the signature behind the headers begins, if there is one.
    std::optional<std::uint64_t> FindSignature()
    {
        const std::uint64_t longest = kSignatureSize + std::numeric_limits<std::uint16_t>::max();
        const auto span = static_cast<std::size_t>(std::min(m_limit, longest));
        ZipBuffer tail;
        if (span < kSignatureSize || !m_volumes.ReadExactly(m_limit - span, span, tail))
            return std::nullopt;
        for (std::size_t at = span - kSignatureSize + 1; at-- > 0;)
        {
            const unsigned char* const record = tail.data() + at;
            if (LoadLittleEndian<std::uint32_t>(record) == kZipSignatureMark &&
                at + kSignatureSize + LoadLittleEndian<std::uint16_t>(record + 4) == span)
                return m_limit - span + at;
        }
        return std::nullopt;
    }

    /// Whether `count` bytes follow those that were taken. False, with errno 0, where the directory ends before.
    bool Require(std::size_t count)
    {
        errno = 0;
        ZipBuffer& bytes = m_directory.m_bytes;
        const std::size_t before = bytes.size();
        if (before - m_taken >= count)
            return true;
        const std::uint64_t left = m_limit - m_directory.m_start - before;
        const std::size_t missing = count - (before - m_taken);
        if (left < missing)
            return false;
        const auto wanted =
            static_cast<std::size_t>(std::min<std::uint64_t>(std::max(kDirectoryBlockSize, missing), left));
        std::size_t delivered = 0;
        bytes.resize(before + wanted);
        if (m_volumes.ReadAt(m_directory.m_start + before, bytes.data() + before, wanted, delivered) &&
            delivered == wanted)
            return true;
        bytes.resize(before);
        return false;
    }

    /// False, with errno 0, where there is no complete header.
    bool TakeHeader()
    {
        const ZipBuffer& bytes = m_directory.m_bytes;
        if (!Require(kZipHeaderSize) || LoadLittleEndian<std::uint32_t>(bytes.data() + m_taken) != kZipHeaderMark)
            return false;
        const unsigned char* const header = bytes.data() + m_taken;
        const std::size_t size = kZipHeaderSize + LoadLittleEndian<std::uint16_t>(header + 28) +
                                 LoadLittleEndian<std::uint16_t>(header + 30) +
                                 LoadLittleEndian<std::uint16_t>(header + 32);
        if (!Require(size))
            return false;
        m_directory.m_headers.push_back(m_taken);
        m_taken += size;
        return true;
    }

    bool ReadHeaders()
    {
        while (TakeHeader())
            continue;
        if (errno != 0)
            return FailReading(m_error);
        m_directory.m_bytes.resize(m_taken);
        const std::uint64_t size = m_taken;
        const std::uint64_t count = m_directory.m_headers.size();
        m_isPlain = count == m_end.m_count && size == m_end.m_size;
        // All headers are there when nothing but a signature follows, or as many as are declared.
        return IsAtEnd() || size == m_end.m_size || count == m_end.m_count || Fail(m_error);
    }

    bool IsAtEnd()
    {
        const std::uint64_t end = m_directory.m_start + m_taken;
        if (end == m_limit)
            return true;
        ZipBuffer record;
        return m_volumes.ReadExactly(end, kSignatureSize, record) &&
               LoadLittleEndian<std::uint32_t>(record.data()) == kZipSignatureMark &&
               end + kSignatureSize + LoadLittleEndian<std::uint16_t>(record.data() + 4) == m_limit;
    }

    ZipVolumeBytes& m_volumes;
    ZipDirectoryEnd m_end;
    ZipDirectory& m_directory;
    ZipError& m_error;
    std::uint64_t m_limit = 0; ///< where the directory ends at the latest
    std::size_t m_taken = 0;   ///< of the directory's bytes those of complete headers
    bool m_isPlain = true;
};

std::shared_ptr<const ZipDirectory> ZipDirectory::Read(ZipVolumeBytes& volumes, const ZipDirectoryEnd& end,
                                                       ZipError& error)
{
    const auto directory = std::make_shared<ZipDirectory>();
    return Reading(volumes, end, *directory, error).Run() ? directory : nullptr;
}

ZipDirectory::Numbers ZipDirectory::NumbersOf(std::size_t header) const
{
    const unsigned char* const bytes = m_bytes.data() + header;
    Numbers numbers;
    numbers.m_compressedSize = LoadLittleEndian<std::uint32_t>(bytes + 20);
    numbers.m_size = LoadLittleEndian<std::uint32_t>(bytes + 24);
    numbers.m_place = {LoadLittleEndian<std::uint16_t>(bytes + 34), LoadLittleEndian<std::uint32_t>(bytes + 42)};
    const std::string_view field = FindZipField(ExtraOf(header), kZip64Field);
    if (!field.empty())
        numbers.TakeField(field);
    return numbers;
}

std::string_view ZipDirectory::NameOf(std::size_t header) const
{
    const auto* const bytes = reinterpret_cast<const char*>(m_bytes.data() + header);
    return {bytes + kZipHeaderSize, LoadLittleEndian<std::uint16_t>(m_bytes.data() + header + 28)};
}

std::string_view ZipDirectory::ExtraOf(std::size_t header) const
{
    const std::string_view name = NameOf(header);
    return {name.data() + name.size(), LoadLittleEndian<std::uint16_t>(m_bytes.data() + header + 30)};
}

std::string ZipDirectory::Name(std::uint64_t index) const
{
    const std::size_t at = m_headers[static_cast<std::size_t>(index)];
    const unsigned char* const bytes = m_bytes.data() + at;
    const bool isUtf8 = (LoadLittleEndian<std::uint16_t>(bytes + 8) & kZipUtf8Flag) != 0;
    std::string name = ZipEntryName(NameOf(at), isUtf8, ExtraOf(at));
    if (IsMadeOnDos(bytes[5]))
        std::replace(name.begin(), name.end(), '\\', '/');
    return name;
}

ZipEntryKind ZipDirectory::Kind(std::uint64_t index) const
{
    const std::size_t at = m_headers[static_cast<std::size_t>(index)];
    return ZipKindOf(Name(index), LoadLittleEndian<std::uint32_t>(m_bytes.data() + at + 38));
}

ZipTimes ZipDirectory::Times(std::uint64_t index) const
{
    const std::size_t at = m_headers[static_cast<std::size_t>(index)];
    const unsigned char* const bytes = m_bytes.data() + at;
    return ZipEntryTimes(ExtraOf(at), LoadLittleEndian<std::uint16_t>(bytes + 14),
                         LoadLittleEndian<std::uint16_t>(bytes + 12));
}

ZipHeader ZipDirectory::Header(std::uint64_t index) const
{
    const std::size_t at = m_headers[static_cast<std::size_t>(index)];
    const unsigned char* const bytes = m_bytes.data() + at;
    const std::string_view extra = ExtraOf(at);
    ZipHeader header;
    header.host = bytes[5];
    header.flags = LoadLittleEndian<std::uint16_t>(bytes + 8);
    header.method = LoadLittleEndian<std::uint16_t>(bytes + 10);
    header.dosTime = LoadLittleEndian<std::uint16_t>(bytes + 12);
    header.dosDate = LoadLittleEndian<std::uint16_t>(bytes + 14);
    header.checksum = LoadLittleEndian<std::uint32_t>(bytes + 16);
    header.attributes = LoadLittleEndian<std::uint32_t>(bytes + 38);
    header.name = Name(index);
    header.kind = ZipKindOf(header.name, header.attributes);
    ReadEncryption(extra, header);
    header.hasLocalTimes = HasLocalTimes(extra);

    const Numbers numbers = NumbersOf(at);
    header.size = numbers.m_size;
    header.compressedSize = numbers.m_compressedSize;
    const std::optional<std::uint64_t> offset = OffsetOf(numbers);
    header.offset = offset.value_or(0);
    header.isSound = offset.has_value();
    return header;
}

/// Where the local header lies, in the sum of all volumes; nothing where the entry does not end before the directory.
std::optional<std::uint64_t> ZipDirectory::OffsetOf(const Numbers& numbers) const
{
    const std::uint64_t limit = m_start - m_shift; // as the archive counts
    const ZipPlace& place = numbers.m_place;
    if (!numbers.m_isComplete || place.m_volume >= m_volumeStarts.size())
        return std::nullopt;
    const std::uint64_t volume = m_volumeStarts[place.m_volume];
    if (volume > limit || place.m_offset > limit - volume)
        return std::nullopt;
    const std::uint64_t offset = volume + place.m_offset;
    if (limit - offset < kZipLocalHeaderSize || numbers.m_compressedSize > limit - offset - kZipLocalHeaderSize)
        return std::nullopt;
    return offset + m_shift;
}

std::uint64_t ZipDirectory::FirstEntry() const
{
    std::uint64_t first = m_start;
    for (const std::size_t header : m_headers)
        first = std::min(first, OffsetOf(NumbersOf(header)).value_or(first));
    return first;
}

bool ZipDirectory::SharesBytes(std::uint64_t index) const
{
    // Not std::call_once: an exception that passes through the C library needs memory there, or ends the process.
    const LockGuard guard(m_sharedLock);
    if (m_isShared.empty())
        m_isShared = FindShared();
    return m_isShared[static_cast<std::size_t>(index)];
}

std::vector<bool> ZipDirectory::FindShared() const
{
    struct Span
    {
        std::uint64_t m_begin;
        std::uint64_t m_end;
        std::uint64_t m_index;
    };
    std::vector<Span> spans;
    spans.reserve(m_headers.size());
    for (std::uint64_t i = 0; i < Count(); ++i)
    {
        const Numbers numbers = NumbersOf(m_headers[static_cast<std::size_t>(i)]);
        const std::optional<std::uint64_t> begin = OffsetOf(numbers);
        if (begin && numbers.m_compressedSize != 0)
            spans.push_back({*begin, *begin + kZipLocalHeaderSize + numbers.m_compressedSize, i});
    }
    std::sort(spans.begin(), spans.end(), [](const Span& a, const Span& b) {
        return a.m_begin != b.m_begin ? a.m_begin > b.m_begin : a.m_index < b.m_index;
    });
    std::vector<bool> isShared(m_headers.size());
    std::uint64_t nextBegin = std::numeric_limits<std::uint64_t>::max();
    for (const Span& span : spans)
    {
        if (span.m_end > nextBegin)
            isShared[static_cast<std::size_t>(span.m_index)] = true;
        else
            nextBegin = span.m_begin;
    }
    return isShared;
}
} // namespace tev::platform
