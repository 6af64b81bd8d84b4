#include "platform/ZipVolumes.h"

#include "platform/SystemErrors.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

namespace tev::platform
{
namespace
{
using Bytes = std::vector<unsigned char>;

constexpr std::uint32_t kHeaderMark = 0x02014B50;
constexpr std::uint32_t kEndMark = 0x06054B50;
constexpr std::uint32_t kEnd64Mark = 0x06064B50;
constexpr std::uint32_t kLocatorMark = 0x07064B50;
constexpr std::size_t kHeaderSize = 46;
constexpr std::size_t kEndSize = 22;
constexpr std::size_t kEnd64Size = 56;
constexpr std::uint64_t kEnd64SizeWithin = 44; // what the record itself says: without its mark and this number
constexpr std::size_t kLocatorSize = 20;
constexpr std::size_t kLocalHeaderSize = 30;
constexpr std::size_t kLongestComment = 0xFFFF;
constexpr std::uint16_t kZip64Field = 0x0001;
constexpr std::uint16_t kFull16 = 0xFFFF;
constexpr std::uint32_t kFull32 = 0xFFFFFFFF;
constexpr std::uint16_t kZip64Version = 45;

constexpr ZipError kDamaged = {ZipFailure::Damaged, 0};

template <class T>
T Load(const Bytes& bytes, std::size_t at)
{
    T value = 0;
    for (std::size_t i = 0; i < sizeof value; ++i)
        value = static_cast<T>(value | static_cast<T>(bytes[at + i]) << 8 * i);
    return value;
}

template <class T>
void Store(Bytes& bytes, std::size_t at, T value)
{
    for (std::size_t i = 0; i < sizeof value; ++i)
        bytes[at + i] = static_cast<unsigned char>(value >> 8 * i);
}

template <class T>
void Append(Bytes& bytes, T value)
{
    bytes.resize(bytes.size() + sizeof value);
    Store(bytes, bytes.size() - sizeof value, value);
}

bool IsSound(const ZipError& error)
{
    return error.failure == ZipFailure::None;
}

/// A place in a split archive.
struct Place
{
    std::uint32_t m_volume = 0;
    std::uint64_t m_offset = 0;
};

/// What the last volume says of the directory.
struct DirectoryEnd
{
    std::uint32_t m_lastVolume = 0;
    Place m_start;
    std::uint64_t m_size = 0;
    std::uint64_t m_count = 0;
    std::optional<Place> m_end64; ///< where the numbers that do not fit stand
    Bytes m_comment;
};

/// Reads exactly so many bytes; false with errno 0 where there are not as many.
bool ReadExactly(ZipBytes& source, std::uint64_t offset, std::size_t count, Bytes& bytes)
{
    errno = 0;
    if (offset > source.Size() || source.Size() - offset < count)
        return false;
    bytes.resize(count);
    std::size_t delivered = 0;
    return source.ReadAt(offset, bytes.data(), count, delivered) && delivered == count;
}

ZipError ReadFailure()
{
    return errno != 0 ? ZipError{ZipFailure::System, LastSystemError()} : kDamaged;
}

/// Where the record that ends an archive begins within its last bytes: the last one whose comment reaches the end, else the
/// last one whose comment fits.
std::optional<std::size_t> FindEnd(const Bytes& tail)
{
    std::optional<std::size_t> fitting;
    for (std::size_t at = tail.size() < kEndSize ? 0 : tail.size() - kEndSize + 1; at-- > 0;)
    {
        if (Load<std::uint32_t>(tail, at) != kEndMark)
            continue;
        const std::size_t end = at + kEndSize + Load<std::uint16_t>(tail, at + 20);
        if (end == tail.size())
            return at;
        if (end < tail.size() && !fitting)
            fitting = at;
    }
    return fitting;
}

/// Nothing where there is no such record.
std::optional<DirectoryEnd> ReadEnd(const Bytes& tail)
{
    const std::optional<std::size_t> at = FindEnd(tail);
    if (!at)
        return std::nullopt;
    DirectoryEnd end;
    end.m_lastVolume = Load<std::uint16_t>(tail, *at + 4);
    end.m_start.m_volume = Load<std::uint16_t>(tail, *at + 6);
    end.m_count = Load<std::uint16_t>(tail, *at + 10);
    end.m_size = Load<std::uint32_t>(tail, *at + 12);
    end.m_start.m_offset = Load<std::uint32_t>(tail, *at + 16);
    const std::size_t commentSize = Load<std::uint16_t>(tail, *at + 20);
    const auto comment = tail.begin() + static_cast<std::ptrdiff_t>(*at + kEndSize);
    end.m_comment.assign(comment, comment + static_cast<std::ptrdiff_t>(commentSize));
    const bool hasLocator = *at >= kLocatorSize && Load<std::uint32_t>(tail, *at - kLocatorSize) == kLocatorMark;
    if (hasLocator)
    {
        const std::size_t locator = *at - kLocatorSize;
        end.m_end64 = Place{Load<std::uint32_t>(tail, locator + 4), Load<std::uint64_t>(tail, locator + 8)};
        const auto volumes = Load<std::uint32_t>(tail, locator + 16);
        if (end.m_lastVolume == kFull16)
            end.m_lastVolume = std::max(volumes, 1U) - 1;
    }
    return end;
}

/// All volumes, one behind the other. One of them is open at a time.
class Volumes
{
public:
    Volumes(std::unique_ptr<ZipBytes> last, const ZipVolumeOpener& open) : m_last(std::move(last)), m_open(open) {}

    ZipError Find(std::uint32_t lastVolume)
    {
        std::uint64_t start = 0;
        for (std::uint32_t number = 0; number <= lastVolume; ++number)
        {
            m_starts.push_back(start);
            const ZipBytes* const volume = number == lastVolume ? m_last.get() : OpenVolume(number);
            if (volume == nullptr)
                return errno == ENOENT ? ZipError{ZipFailure::MissingVolume, 0} : ReadFailure();
            if (volume->Size() > std::numeric_limits<std::int64_t>::max() - start)
                return kDamaged;
            start += volume->Size();
        }
        m_size = start;
        return {};
    }

    std::uint64_t Size() const { return m_size; }

    /// The place in the sum of all volumes; nothing where it lies in none.
    std::optional<std::uint64_t> Position(const Place& place) const
    {
        if (place.m_volume >= m_starts.size())
            return std::nullopt;
        const std::uint64_t start = m_starts[place.m_volume];
        const std::uint64_t end = place.m_volume + 1 == m_starts.size() ? m_size : m_starts[place.m_volume + 1];
        if (place.m_offset > end - start)
            return std::nullopt;
        return start + place.m_offset;
    }

    /// Less than `count` only at the end.
    bool ReadAt(std::uint64_t offset, void* buffer, std::size_t count, std::size_t& delivered)
    {
        delivered = 0;
        while (delivered < count && offset < m_size)
        {
            const auto next = std::upper_bound(m_starts.begin(), m_starts.end(), offset);
            const auto number = static_cast<std::uint32_t>(next - m_starts.begin() - 1);
            const std::uint64_t end = next == m_starts.end() ? m_size : *next;
            ZipBytes* const volume = OpenVolume(number);
            if (volume == nullptr)
                return false;
            const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(count - delivered, end - offset));
            std::size_t got = 0;
            if (!volume->ReadAt(offset - m_starts[number], static_cast<char*>(buffer) + delivered, wanted, got))
                return false;
            delivered += got;
            offset += got;
            if (got < wanted) // somebody cut the volume meanwhile
                break;
        }
        return true;
    }

private:
    ZipBytes* OpenVolume(std::uint32_t number)
    {
        if (number + 1 == m_starts.size() && m_size != 0)
            return m_last.get();
        if (m_opened == nullptr || m_openedNumber != number)
        {
            m_opened = m_open(number);
            m_openedNumber = number;
        }
        return m_opened.get();
    }

    std::unique_ptr<ZipBytes> m_last;
    ZipVolumeOpener m_open;
    std::vector<std::uint64_t> m_starts;
    std::uint64_t m_size = 0; ///< known when all are found
    std::unique_ptr<ZipBytes> m_opened;
    std::uint32_t m_openedNumber = 0;
};

/// The volumes up to where the directory begins, and behind them the new one.
class JoinedBytes final : public ZipBytes
{
public:
    JoinedBytes(Volumes volumes, std::uint64_t volumesSize, Bytes directory)
        : m_volumes(std::move(volumes)), m_volumesSize(volumesSize), m_directory(std::move(directory))
    {
    }

    std::uint64_t Size() const override { return m_volumesSize + m_directory.size(); }

    bool ReadAt(std::uint64_t offset, void* buffer, std::size_t count, std::size_t& delivered) override
    {
        delivered = 0;
        if (offset < m_volumesSize)
        {
            const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(count, m_volumesSize - offset));
            if (!m_volumes.ReadAt(offset, buffer, wanted, delivered) || delivered < wanted)
                return delivered == wanted;
            offset += wanted;
        }
        const std::uint64_t within = offset - m_volumesSize;
        if (within < m_directory.size())
        {
            const auto at = static_cast<std::size_t>(within);
            const std::size_t given = std::min(count - delivered, m_directory.size() - at);
            std::memcpy(static_cast<char*>(buffer) + delivered, m_directory.data() + at, given);
            delivered += given;
        }
        return true;
    }

private:
    Volumes m_volumes;
    std::uint64_t m_volumesSize;
    Bytes m_directory;
};

/// Takes the directory of a split archive apart and makes one for all volumes in one.
class DirectoryRewriter
{
public:
    DirectoryRewriter(Volumes& volumes, const DirectoryEnd& end) : m_volumes(volumes), m_end(end) {}

    ZipError Rewrite()
    {
        ZipError error = ReadEnd64();
        const std::optional<std::uint64_t> start = m_volumes.Position(m_end.m_start);
        if (!IsSound(error) || !start)
            return IsSound(error) ? kDamaged : error;
        m_start = *start;
        // What the archive declares is held against what is there before any of it is counted on.
        if (m_end.m_size > m_volumes.Size() - m_start || m_end.m_count > m_end.m_size / kHeaderSize)
            return kDamaged;
        m_at = m_start;
        m_limit = m_start + m_end.m_size;
        for (std::uint64_t i = 0; i < m_end.m_count && IsSound(error); ++i)
            error = RewriteHeader();
        if (IsSound(error))
            WriteEnd();
        return error;
    }

    std::uint64_t Start() const { return m_start; }
    Bytes TakeDirectory() { return std::move(m_directory); }

private:
    ZipError ReadEnd64()
    {
        const bool isNeeded = m_end.m_count == kFull16 || m_end.m_size == kFull32 ||
                              m_end.m_start.m_offset == kFull32 || m_end.m_start.m_volume == kFull16;
        if (!m_end.m_end64 || !isNeeded)
            return {};
        const std::optional<std::uint64_t> at = m_volumes.Position(*m_end.m_end64);
        Bytes record;
        if (!at)
            return kDamaged;
        if (!ReadAt(*at, kEnd64Size, record))
            return ReadFailure();
        if (Load<std::uint32_t>(record, 0) != kEnd64Mark || Load<std::uint64_t>(record, 4) < kEnd64SizeWithin)
            return kDamaged;
        m_end.m_start.m_volume = Load<std::uint32_t>(record, 20);
        m_end.m_count = Load<std::uint64_t>(record, 32);
        m_end.m_size = Load<std::uint64_t>(record, 40);
        m_end.m_start.m_offset = Load<std::uint64_t>(record, 48);
        return {};
    }

    bool ReadAt(std::uint64_t offset, std::size_t count, Bytes& bytes)
    {
        errno = 0;
        bytes.resize(count);
        std::size_t delivered = 0;
        return m_volumes.ReadAt(offset, bytes.data(), count, delivered) && delivered == count;
    }

    /// The next bytes of the directory, behind those in `header`.
    bool TakeMore(std::size_t count)
    {
        errno = 0;
        if (m_limit - m_at < count)
            return false;
        Bytes more;
        if (!ReadBuffered(count, more))
            return false;
        m_header.insert(m_header.end(), more.begin(), more.end());
        return true;
    }

    bool ReadBuffered(std::size_t count, Bytes& bytes)
    {
        constexpr std::size_t kBlockSize = 64 * 1024;
        if (m_at < m_blockStart || m_at - m_blockStart + count > m_block.size())
        {
            const auto wanted =
                static_cast<std::size_t>(std::min<std::uint64_t>(std::max(kBlockSize, count), m_volumes.Size() - m_at));
            if (wanted < count || !ReadAt(m_at, wanted, m_block))
                return false;
            m_blockStart = m_at;
        }
        const auto first = m_block.begin() + static_cast<std::ptrdiff_t>(m_at - m_blockStart);
        bytes.assign(first, first + static_cast<std::ptrdiff_t>(count));
        m_at += count;
        return true;
    }

    ZipError RewriteHeader()
    {
        m_header.clear();
        if (!TakeMore(kHeaderSize))
            return ReadFailure();
        if (Load<std::uint32_t>(m_header, 0) != kHeaderMark)
            return kDamaged;
        const std::size_t nameSize = Load<std::uint16_t>(m_header, 28);
        const std::size_t extraSize = Load<std::uint16_t>(m_header, 30);
        const std::size_t commentSize = Load<std::uint16_t>(m_header, 32);
        if (!TakeMore(nameSize + extraSize + commentSize))
            return ReadFailure();

        Numbers numbers;
        Bytes others;
        const std::size_t extraAt = kHeaderSize + nameSize;
        if (!SplitExtra(extraAt, extraSize, numbers, others))
            return kDamaged;
        const std::optional<std::uint64_t> position = m_volumes.Position(numbers.m_place);
        if (!position || *position > m_start || m_start - *position < kLocalHeaderSize)
            return kDamaged;
        numbers.m_place.m_offset = *position;
        return WriteHeader(numbers, others, nameSize, extraAt + extraSize);
    }

    /// What stands in a header in 32 bits, or in its extra field in 64.
    struct Numbers
    {
        std::uint64_t m_size = 0;
        std::uint64_t m_compressedSize = 0;
        Place m_place;
    };

    /// Takes the numbers out of the header and its field for 64 bits; the other fields go to `others`.
    bool SplitExtra(std::size_t at, std::size_t size, Numbers& numbers, Bytes& others) const
    {
        numbers.m_compressedSize = Load<std::uint32_t>(m_header, 20);
        numbers.m_size = Load<std::uint32_t>(m_header, 24);
        numbers.m_place = {Load<std::uint16_t>(m_header, 34), Load<std::uint32_t>(m_header, 42)};
        const std::size_t end = at + size;
        while (end - at >= 4)
        {
            const std::size_t fieldSize = Load<std::uint16_t>(m_header, at + 2);
            const std::size_t next = at + 4 + fieldSize;
            if (next > end)
                return false;
            if (Load<std::uint16_t>(m_header, at) != kZip64Field)
                others.insert(others.end(), m_header.begin() + static_cast<std::ptrdiff_t>(at),
                              m_header.begin() + static_cast<std::ptrdiff_t>(next));
            else if (!TakeNumbers(at + 4, next, numbers))
                return false;
            at = next;
        }
        return true; // a few bytes behind the last field are left out
    }

    bool TakeNumbers(std::size_t at, std::size_t end, Numbers& numbers) const
    {
        for (std::uint64_t* const number : {&numbers.m_size, &numbers.m_compressedSize, &numbers.m_place.m_offset})
        {
            if (*number != kFull32)
                continue;
            if (end - at < 8)
                return false;
            *number = Load<std::uint64_t>(m_header, at);
            at += 8;
        }
        if (numbers.m_place.m_volume != kFull16)
            return true;
        if (end - at < 4)
            return false;
        numbers.m_place.m_volume = Load<std::uint32_t>(m_header, at);
        return true;
    }

    ZipError WriteHeader(const Numbers& numbers, const Bytes& others, std::size_t nameSize, std::size_t commentAt)
    {
        Bytes field;
        Store(m_header, 24, Shortened(numbers.m_size, field));
        Store(m_header, 20, Shortened(numbers.m_compressedSize, field));
        Store(m_header, 42, Shortened(numbers.m_place.m_offset, field));
        Store<std::uint16_t>(m_header, 34, 0);
        const std::size_t extraSize = others.size() + (field.empty() ? 0 : 4 + field.size());
        if (extraSize > kFull16)
            return kDamaged;
        Store(m_header, 30, static_cast<std::uint16_t>(extraSize));

        const auto name = m_header.begin() + static_cast<std::ptrdiff_t>(kHeaderSize + nameSize);
        m_directory.insert(m_directory.end(), m_header.begin(), name);
        if (!field.empty())
        {
            Append(m_directory, kZip64Field);
            Append(m_directory, static_cast<std::uint16_t>(field.size()));
            m_directory.insert(m_directory.end(), field.begin(), field.end());
        }
        m_directory.insert(m_directory.end(), others.begin(), others.end());
        m_directory.insert(m_directory.end(), m_header.begin() + static_cast<std::ptrdiff_t>(commentAt),
                           m_header.end());
        return {};
    }

    /// What stands in 32 bits; a number that does not fit goes to the field.
    static std::uint32_t Shortened(std::uint64_t number, Bytes& field)
    {
        if (number < kFull32)
            return static_cast<std::uint32_t>(number);
        Append(field, number);
        return kFull32;
    }

    void WriteEnd()
    {
        const std::uint64_t size = m_directory.size();
        const std::uint64_t count = m_end.m_count;
        if (size >= kFull32 || m_start >= kFull32 || count >= kFull16)
        {
            Append(m_directory, kEnd64Mark);
            Append(m_directory, kEnd64SizeWithin);
            Append(m_directory, kZip64Version);
            Append(m_directory, kZip64Version);
            Append<std::uint32_t>(m_directory, 0);
            Append<std::uint32_t>(m_directory, 0);
            Append(m_directory, count);
            Append(m_directory, count);
            Append(m_directory, size);
            Append(m_directory, m_start);
            Append(m_directory, kLocatorMark);
            Append<std::uint32_t>(m_directory, 0);
            Append(m_directory, m_start + size);
            Append<std::uint32_t>(m_directory, 1);
        }
        const auto count16 = static_cast<std::uint16_t>(std::min<std::uint64_t>(count, kFull16));
        Append(m_directory, kEndMark);
        Append<std::uint16_t>(m_directory, 0);
        Append<std::uint16_t>(m_directory, 0);
        Append(m_directory, count16);
        Append(m_directory, count16);
        Append(m_directory, static_cast<std::uint32_t>(std::min<std::uint64_t>(size, kFull32)));
        Append(m_directory, static_cast<std::uint32_t>(std::min<std::uint64_t>(m_start, kFull32)));
        Append(m_directory, static_cast<std::uint16_t>(m_end.m_comment.size()));
        m_directory.insert(m_directory.end(), m_end.m_comment.begin(), m_end.m_comment.end());
    }

    Volumes& m_volumes;
    DirectoryEnd m_end;
    std::uint64_t m_start = 0; ///< of the directory, in the sum of all volumes
    std::uint64_t m_at = 0;    ///< how far it is read
    std::uint64_t m_limit = 0;
    Bytes m_block;
    std::uint64_t m_blockStart = 0;
    Bytes m_header;
    Bytes m_directory;
};
} // namespace

std::wstring ZipVolumePath(const std::wstring& lastPath, std::uint32_t number)
{
    constexpr std::size_t kExtensionSize = 4;
    if (lastPath.size() <= kExtensionSize || lastPath[lastPath.size() - kExtensionSize] != L'.')
        return {};
    std::wstring digits = std::to_wstring(std::uint64_t{number} + 1);
    digits.insert(0, digits.size() < 2 ? 2 - digits.size() : 0, L'0');
    // The first letter of the extension stays: it may be a capital.
    return lastPath.substr(0, lastPath.size() - kExtensionSize + 2) + digits;
}

bool JoinZipVolumes(std::unique_ptr<ZipBytes>& bytes, const ZipVolumeOpener& openVolume, bool& isSplit, ZipError& error)
{
    const std::uint64_t size = bytes->Size();
    const auto tailSize =
        static_cast<std::size_t>(std::min<std::uint64_t>(size, kLocatorSize + kEndSize + kLongestComment));
    Bytes tail;
    if (!ReadExactly(*bytes, size - tailSize, tailSize, tail))
    {
        error = ReadFailure();
        return false;
    }
    const std::optional<DirectoryEnd> end = ReadEnd(tail);
    if (!end || end->m_lastVolume == 0)
        return true;

    isSplit = true;
    Volumes volumes(std::move(bytes), openVolume);
    error = volumes.Find(end->m_lastVolume);
    if (!IsSound(error))
        return false;
    DirectoryRewriter rewriter(volumes, *end);
    error = rewriter.Rewrite();
    if (!IsSound(error))
        return false;
    bytes = std::make_unique<JoinedBytes>(std::move(volumes), rewriter.Start(), rewriter.TakeDirectory());
    return true;
}
} // namespace tev::platform
