#include "platform/PathNames.h"
#include "zip/engine/ZipDirectory.h"
#include "zip/engine/ZipFields.h"
#include "zip/engine/ZipRecords.h"

#include <algorithm>
#include <string>
#include <vector>

namespace tev::platform
{
namespace
{
constexpr std::uint16_t kZip64Version = 45;

/// Whether libzip would take UTF-8 for something else, and a name that is flagged so for damage.
bool HasControls(const std::string& name)
{
    return std::any_of(name.begin(), name.end(), [](char c) {
        return static_cast<unsigned char>(c) < ' ' && c != '\t' && c != '\n' && c != '\r';
    });
}

/// The name, or one that libzip reads as it is. A backslash marks those that were changed.
std::string AcceptedName(std::string_view name, std::uint16_t& flags)
{
    std::string accepted(name);
    std::replace(accepted.begin(), accepted.end(), '\0', '\\');
    const bool isText = IsUtf8(accepted.c_str());
    if ((flags & kZipUtf8Flag) != 0 && (!isText || HasControls(accepted)))
    {
        flags = static_cast<std::uint16_t>(flags & ~kZipUtf8Flag);
        accepted.insert(0, isText ? 0 : 1, '\\');
    }
    return accepted;
}

/// As libzip hashes names for its table.
std::uint32_t LibZipHash(const std::string& name)
{
    std::uint32_t hash = 5381;
    for (const char c : name)
        hash = hash * 33 + static_cast<unsigned char>(c);
    return hash;
}

/// All valid fields but the one for 64 bits.
std::string_view::size_type AppendFields(std::string_view extra, ZipBuffer& fields)
{
    std::size_t at = 0;
    while (extra.size() - at >= 4)
    {
        const auto* const field = reinterpret_cast<const unsigned char*>(extra.data() + at);
        const std::size_t size = 4 + std::size_t{LoadLittleEndian<std::uint16_t>(field + 2)};
        if (size > extra.size() - at)
            break;
        if (LoadLittleEndian<std::uint16_t>(field) != kZip64Field)
            fields.insert(fields.end(), field, field + size);
        at += size;
    }
    return at;
}

/// What goes into 32 bits; a number that does not fit goes into the field.
std::uint32_t Shortened(std::uint64_t number, ZipBuffer& field)
{
    if (number < kZipFull32)
        return static_cast<std::uint32_t>(number);
    AppendLittleEndian(field, number);
    return kZipFull32;
}

std::uint16_t At16(std::size_t size)
{
    return static_cast<std::uint16_t>(std::min<std::size_t>(size, kZipFull16));
}
} // namespace

bool ZipDirectory::NeedsOtherHeader(std::size_t header) const
{
    const auto before = LoadLittleEndian<std::uint16_t>(m_bytes.data() + header + 8);
    std::uint16_t flags = before;
    ZipBuffer fields;
    return AcceptedName(NameOf(header), flags) != NameOf(header) || flags != before ||
           AppendFields(ExtraOf(header), fields) != ExtraOf(header).size();
}

bool ZipDirectory::IsPlain() const
{
    return m_isEndPlain && std::all_of(m_headers.begin(), m_headers.end(), [this](std::size_t header) {
               return OffsetOf(NumbersOf(header)) && !NeedsOtherHeader(header);
           });
}

bool ZipDirectory::FloodsLibZip() const
{
    constexpr std::uint64_t kFewNames = 1000;
    constexpr std::uint64_t kComparisonsForEach = 100; // where chance decides, there is less than one
    std::size_t places = 256;
    while (places * 3 / 4 < m_headers.size())
        places *= 2;
    std::vector<std::uint32_t> namesAt(places);
    std::uint64_t comparisons = 0;
    for (const std::size_t header : m_headers)
    {
        auto flags = LoadLittleEndian<std::uint16_t>(m_bytes.data() + header + 8);
        const std::string name = AcceptedName(NameOf(header), flags);
        const bool isUtf8 = (flags & kZipUtf8Flag) != 0;
        // What libzip makes of control characters is not predicted: together, they count as one name.
        const bool isKnown = isUtf8 || !HasControls(name);
        const std::uint32_t hash = isKnown ? LibZipHash(ZipEntryName(name, isUtf8, ExtraOf(header))) : 0;
        comparisons += namesAt[hash & (places - 1)]++;
    }
    return comparisons > kComparisonsForEach * std::max<std::uint64_t>(m_headers.size(), kFewNames);
}

ZipBuffer ZipDirectory::Rewritten() const
{
    ZipBuffer directory;
    const std::uint64_t firstEntry = FirstEntry();
    for (const std::size_t header : m_headers)
        WriteHeader(header, firstEntry, directory);
    WriteEnd(directory);
    return directory;
}

void ZipDirectory::WriteHeader(std::size_t header, std::uint64_t firstEntry, ZipBuffer& directory) const
{
    const unsigned char* const old = m_bytes.data() + header;
    auto flags = LoadLittleEndian<std::uint16_t>(old + 8);
    const std::string name = AcceptedName(NameOf(header), flags).substr(0, kZipFull16);
    const std::string_view extra = ExtraOf(header);
    const auto* const comment = reinterpret_cast<const unsigned char*>(extra.data()) + extra.size();
    const std::size_t commentSize = LoadLittleEndian<std::uint16_t>(old + 32);
    ZipBuffer others;
    AppendFields(extra, others);

    const Numbers numbers = NumbersOf(header);
    const std::optional<std::uint64_t> offset = OffsetOf(numbers);
    ZipBuffer field;
    const std::size_t at = directory.size();
    directory.insert(directory.end(), old, old + kZipHeaderSize);
    unsigned char* const mine = directory.data() + at;
    // libzip refuses an archive for one entry that is not sound.
    StoreLittleEndian(mine + 24, offset ? Shortened(numbers.m_size, field) : 0U);
    StoreLittleEndian(mine + 20, offset ? Shortened(numbers.m_compressedSize, field) : 0U);
    StoreLittleEndian(mine + 42, Shortened(offset.value_or(firstEntry), field));
    StoreLittleEndian<std::uint16_t>(mine + 34, 0);
    StoreLittleEndian(mine + 8, flags);
    const std::size_t fieldSize = field.empty() ? 0 : 4 + field.size();
    if (others.size() + fieldSize > kZipFull16)
        others.clear();
    StoreLittleEndian(mine + 28, At16(name.size()));
    StoreLittleEndian(mine + 30, At16(others.size() + fieldSize));
    directory.insert(directory.end(), name.begin(), name.end());
    if (!field.empty())
    {
        AppendLittleEndian(directory, kZip64Field);
        AppendLittleEndian(directory, At16(field.size()));
        directory.insert(directory.end(), field.begin(), field.end());
    }
    directory.insert(directory.end(), others.begin(), others.end());
    directory.insert(directory.end(), comment, comment + commentSize);
}

void ZipDirectory::WriteEnd(ZipBuffer& directory) const
{
    const std::uint64_t size = directory.size();
    const std::uint64_t count = Count();
    if (count >= kZipFull16 || size >= kZipFull32 || m_start >= kZipFull32)
    {
        AppendLittleEndian(directory, kZipEnd64Mark);
        AppendLittleEndian<std::uint64_t>(directory, kZipEnd64Size - 12);
        AppendLittleEndian(directory, kZip64Version);
        AppendLittleEndian(directory, kZip64Version);
        AppendLittleEndian<std::uint64_t>(directory, 0); // volumes
        AppendLittleEndian(directory, count);
        AppendLittleEndian(directory, count);
        AppendLittleEndian(directory, size);
        AppendLittleEndian(directory, m_start);
        AppendLittleEndian(directory, kZipLocatorMark);
        AppendLittleEndian<std::uint32_t>(directory, 0);
        AppendLittleEndian(directory, m_start + size);
        AppendLittleEndian<std::uint32_t>(directory, 1);
    }
    AppendLittleEndian(directory, kZipEndMark);
    AppendLittleEndian<std::uint32_t>(directory, 0); // volumes
    AppendLittleEndian(directory, At16(count));
    AppendLittleEndian(directory, At16(count));
    AppendLittleEndian(directory, static_cast<std::uint32_t>(std::min<std::uint64_t>(size, kZipFull32)));
    AppendLittleEndian(directory, static_cast<std::uint32_t>(std::min<std::uint64_t>(m_start, kZipFull32)));
    AppendLittleEndian(directory, At16(m_comment.size()));
    directory.insert(directory.end(), m_comment.begin(), m_comment.end());
}
} // namespace tev::platform
