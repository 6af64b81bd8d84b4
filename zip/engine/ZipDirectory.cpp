#include "zip/engine/ZipDirectory.h"

#include "platform/PathNames.h"
#include "platform/SystemErrors.h"

#include <algorithm>
#include <cerrno>
#include <string>

namespace tev::platform
{
namespace
{
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
constexpr std::uint16_t kZip64Field = 0x0001;
constexpr std::uint16_t kFull16 = 0xFFFF;
constexpr std::uint32_t kFull32 = 0xFFFFFFFF;
constexpr std::uint16_t kZip64Version = 45;

constexpr std::uint16_t kUtf8Flag = 0x0800;

template <class T>
T Load(const ZipBuffer& bytes, std::size_t at)
{
    T value = 0;
    for (std::size_t i = 0; i < sizeof value; ++i)
        value = static_cast<T>(value | static_cast<T>(bytes[at + i]) << 8 * i);
    return value;
}

template <class T>
void Store(ZipBuffer& bytes, std::size_t at, T value)
{
    for (std::size_t i = 0; i < sizeof value; ++i)
        bytes[at + i] = static_cast<unsigned char>(value >> 8 * i);
}

template <class T>
void Append(ZipBuffer& bytes, T value)
{
    bytes.resize(bytes.size() + sizeof value);
    Store(bytes, bytes.size() - sizeof value, value);
}

/// Fails with what the system says, or as damaged where it says nothing.
bool FailReading(ZipError& error)
{
    error = errno != 0 ? ZipError{ZipFailure::System, LastSystemError()} : ZipError{ZipFailure::Damaged, 0};
    return false;
}

bool FailAsDamaged(ZipError& error)
{
    error = {ZipFailure::Damaged, 0};
    return false;
}

/// Where the record that ends an archive begins within its last bytes: the last one whose comment reaches the end, else the
/// last one whose comment fits, else the last one.
std::optional<std::size_t> FindEndMark(const ZipBuffer& tail)
{
    std::optional<std::size_t> fitting;
    std::optional<std::size_t> last;
    for (std::size_t at = tail.size() < kEndSize ? 0 : tail.size() - kEndSize + 1; at-- > 0;)
    {
        if (Load<std::uint32_t>(tail, at) != kEndMark)
            continue;
        const std::size_t end = at + kEndSize + Load<std::uint16_t>(tail, at + 20);
        if (end == tail.size())
            return at;
        if (end < tail.size() && !fitting)
            fitting = at;
        last = last ? last : at;
    }
    return fitting ? fitting : last;
}

/// Whether libzip would take UTF-8 for something else, and a name that is flagged so for damage.
bool HasControls(const std::string& name)
{
    return std::any_of(name.begin(), name.end(), [](char c) {
        return static_cast<unsigned char>(c) < ' ' && c != '\t' && c != '\n' && c != '\r';
    });
}

/// What stands in 32 bits; a number that does not fit goes to the field.
std::uint32_t Shortened(std::uint64_t number, ZipBuffer& field)
{
    if (number < kFull32)
        return static_cast<std::uint32_t>(number);
    Append(field, number);
    return kFull32;
}
} // namespace

std::optional<ZipDirectoryEnd> FindZipEnd(const ZipBuffer& tail)
{
    const std::optional<std::size_t> at = FindEndMark(tail);
    if (!at)
        return std::nullopt;
    ZipDirectoryEnd end;
    end.m_lastVolume = Load<std::uint16_t>(tail, *at + 4);
    end.m_fromEnd = tail.size() - *at;
    end.m_start.m_volume = Load<std::uint16_t>(tail, *at + 6);
    end.m_count = Load<std::uint16_t>(tail, *at + 10);
    end.m_size = Load<std::uint32_t>(tail, *at + 12);
    end.m_start.m_offset = Load<std::uint32_t>(tail, *at + 16);
    const std::size_t commentSize = Load<std::uint16_t>(tail, *at + 20);
    const std::size_t commentAt = *at + kEndSize;
    end.m_isCut = commentSize > tail.size() - commentAt;
    const auto comment = tail.begin() + static_cast<std::ptrdiff_t>(commentAt);
    end.m_comment.assign(comment, end.m_isCut ? tail.end() : comment + static_cast<std::ptrdiff_t>(commentSize));
    const bool hasLocator = *at >= kLocatorSize && Load<std::uint32_t>(tail, *at - kLocatorSize) == kLocatorMark;
    if (hasLocator)
    {
        const std::size_t locator = *at - kLocatorSize;
        end.m_end64 = ZipPlace{Load<std::uint32_t>(tail, locator + 4), Load<std::uint64_t>(tail, locator + 8)};
        const auto volumes = Load<std::uint32_t>(tail, locator + 16);
        if (end.m_lastVolume == kFull16)
            end.m_lastVolume = std::max(volumes, 1U) - 1;
    }
    return end;
}

/// What stands in a header in 32 bits, or in its extra field in 64.
struct ZipDirectoryRewriter::Numbers
{
    std::uint64_t m_size = 0;
    std::uint64_t m_compressedSize = 0;
    ZipPlace m_place;
};

bool ZipDirectoryRewriter::Rewrite(ZipError& error)
{
    if (!ReadEnd64(error))
        return false;
    // What the archive declares is held against what is there before any of it is counted on.
    if (!FindStart() || m_end.m_size > m_volumes.Size() - m_start || m_end.m_count > m_end.m_size / kHeaderSize)
        return FailAsDamaged(error);
    m_isMended = m_shift != 0 || m_end.m_isCut;
    m_at = m_start;
    m_limit = m_start + m_end.m_size;
    m_firstEntry = m_end.m_count != 0 ? m_start : 0;
    for (std::uint64_t i = 0; i < m_end.m_count; ++i)
    {
        if (!RewriteHeader(error))
            return false;
    }
    if (m_at != m_limit)
        return FailAsDamaged(error);
    WriteEnd();
    return true;
}

bool ZipDirectoryRewriter::ReadEnd64(ZipError& error)
{
    const bool isNeeded = m_end.m_count == kFull16 || m_end.m_size == kFull32 || m_end.m_start.m_offset == kFull32 ||
                          m_end.m_start.m_volume == kFull16;
    if (!m_end.m_end64 || !isNeeded)
        return true;
    const std::optional<std::uint64_t> at = m_volumes.Position(*m_end.m_end64);
    ZipBuffer record;
    if (!at)
        return FailAsDamaged(error);
    if (!m_volumes.ReadExactly(*at, kEnd64Size, record))
        return FailReading(error);
    if (Load<std::uint32_t>(record, 0) != kEnd64Mark || Load<std::uint64_t>(record, 4) < kEnd64SizeWithin)
        return FailAsDamaged(error);
    m_end.m_start.m_volume = Load<std::uint32_t>(record, 20);
    m_end.m_count = Load<std::uint64_t>(record, 32);
    m_end.m_size = Load<std::uint64_t>(record, 40);
    m_end.m_start.m_offset = Load<std::uint64_t>(record, 48);
    return true;
}

/// Where the directory begins. When something was put before an archive, such as a program that unpacks it, and nobody
/// told the archive, all of it lies further behind than it says; then its directory still ends before its end.
bool ZipDirectoryRewriter::FindStart()
{
    const std::optional<std::uint64_t> declared = m_volumes.Position(m_end.m_start);
    if (declared)
        m_start = *declared;
    const std::uint64_t end = m_volumes.Size() - m_end.m_fromEnd;
    ZipBuffer mark;
    const bool isThere = declared && m_volumes.ReadExactly(m_start, 4, mark) &&
                         (Load<std::uint32_t>(mark, 0) == kHeaderMark || m_end.m_count == 0);
    if (isThere || m_end.m_lastVolume != 0 || m_end.m_end64 || m_end.m_size > end || end - m_end.m_size < m_start)
        return declared.has_value();
    m_shift = end - m_end.m_size - m_start;
    m_start += m_shift;
    return true;
}

/// The next bytes of the directory, behind those in the header.
bool ZipDirectoryRewriter::TakeMore(std::size_t count)
{
    constexpr std::size_t kBlockSize = 64 * 1024;
    errno = 0;
    if (m_limit - m_at < count)
        return false;
    if (m_at < m_blockStart || m_at - m_blockStart + count > m_block.size())
    {
        const auto wanted =
            static_cast<std::size_t>(std::min<std::uint64_t>(std::max(kBlockSize, count), m_volumes.Size() - m_at));
        if (!m_volumes.ReadExactly(m_at, wanted, m_block))
            return false;
        m_blockStart = m_at;
    }
    const auto first = m_block.begin() + static_cast<std::ptrdiff_t>(m_at - m_blockStart);
    m_header.insert(m_header.end(), first, first + static_cast<std::ptrdiff_t>(count));
    m_at += count;
    return true;
}

bool ZipDirectoryRewriter::RewriteHeader(ZipError& error)
{
    m_header.clear();
    if (!TakeMore(kHeaderSize))
        return FailReading(error);
    if (Load<std::uint32_t>(m_header, 0) != kHeaderMark)
        return FailAsDamaged(error);
    const std::size_t nameSize = Load<std::uint16_t>(m_header, 28);
    const std::size_t extraSize = Load<std::uint16_t>(m_header, 30);
    const std::size_t commentSize = Load<std::uint16_t>(m_header, 32);
    if (!TakeMore(nameSize + extraSize + commentSize))
        return FailReading(error);

    Numbers numbers;
    ZipBuffer others;
    const std::size_t extraAt = kHeaderSize + nameSize;
    if (!SplitExtra(extraAt, extraSize, numbers, others))
        return FailAsDamaged(error);
    const std::optional<std::uint64_t> position = m_volumes.Position(numbers.m_place);
    if (!position || *position > m_start - m_shift || m_start - m_shift - *position < kLocalHeaderSize)
        return FailAsDamaged(error);
    numbers.m_place.m_offset = *position + m_shift;
    m_firstEntry = std::min(m_firstEntry, numbers.m_place.m_offset);
    return WriteHeader(numbers, others, nameSize, extraAt + extraSize) || FailAsDamaged(error);
}

/// Takes the numbers out of the header and its field for 64 bits; the other fields go to `others`.
bool ZipDirectoryRewriter::SplitExtra(std::size_t at, std::size_t size, Numbers& numbers, ZipBuffer& others)
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
            break;
        if (Load<std::uint16_t>(m_header, at) != kZip64Field)
            others.insert(others.end(), m_header.begin() + static_cast<std::ptrdiff_t>(at),
                          m_header.begin() + static_cast<std::ptrdiff_t>(next));
        else if (!TakeNumbers(at + 4, next, numbers))
            return false;
        at = next;
    }
    m_isMended = m_isMended || at != end; // what is no field is left out
    return true;
}

bool ZipDirectoryRewriter::TakeNumbers(std::size_t at, std::size_t end, Numbers& numbers) const
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

/// The name, or, where that could be no file's, one that tells so by a backslash, which no safe name has.
std::string ZipDirectoryRewriter::MendedName(std::size_t nameSize)
{
    const auto first = m_header.begin() + static_cast<std::ptrdiff_t>(kHeaderSize);
    std::string name(first, first + static_cast<std::ptrdiff_t>(nameSize));
    const auto flags = Load<std::uint16_t>(m_header, 8);
    if (name.find('\0') != name.npos)
    {
        std::replace(name.begin(), name.end(), '\0', '\\');
        m_isMended = true;
    }
    const bool isText = IsUtf8(name.c_str());
    if ((flags & kUtf8Flag) != 0 && (!isText || HasControls(name)))
    {
        Store(m_header, 8, static_cast<std::uint16_t>(flags & ~kUtf8Flag));
        name.insert(0, isText ? 0 : 1, '\\');
        m_isMended = true;
    }
    return name;
}

bool ZipDirectoryRewriter::WriteHeader(const Numbers& numbers, const ZipBuffer& others, std::size_t nameSize,
                                       std::size_t commentAt)
{
    const std::string name = MendedName(nameSize);
    ZipBuffer field;
    Store(m_header, 24, Shortened(numbers.m_size, field));
    Store(m_header, 20, Shortened(numbers.m_compressedSize, field));
    Store(m_header, 42, Shortened(numbers.m_place.m_offset, field));
    Store<std::uint16_t>(m_header, 34, 0);
    const std::size_t extraSize = others.size() + (field.empty() ? 0 : 4 + field.size());
    if (extraSize > kFull16 || name.size() > kFull16)
        return false;
    Store(m_header, 30, static_cast<std::uint16_t>(extraSize));

    Store(m_header, 28, static_cast<std::uint16_t>(name.size()));
    const auto header = m_header.begin();
    m_directory.insert(m_directory.end(), header, header + static_cast<std::ptrdiff_t>(kHeaderSize));
    m_directory.insert(m_directory.end(), name.begin(), name.end());
    if (!field.empty())
    {
        Append(m_directory, kZip64Field);
        Append(m_directory, static_cast<std::uint16_t>(field.size()));
        m_directory.insert(m_directory.end(), field.begin(), field.end());
    }
    m_directory.insert(m_directory.end(), others.begin(), others.end());
    m_directory.insert(m_directory.end(), m_header.begin() + static_cast<std::ptrdiff_t>(commentAt), m_header.end());
    return true;
}

void ZipDirectoryRewriter::WriteEnd()
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
} // namespace tev::platform
