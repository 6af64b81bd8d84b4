#include "crash/ModuleFile.h"

#include "base/ByteReader.h"
#include "crash/ElfFormat.h"
#include "crash/Processor.h"
#include "platform/Demangling.h"
#include "platform/InputFile.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace tev
{
namespace
{
using platform::ByteReader;

// Bounds of time and memory for files that were made to take long.
constexpr std::uint64_t kLargestFile = std::uint64_t{512} << 20;
constexpr std::size_t kMostHeaders = 4096;
constexpr std::uint64_t kLongestNotes = 64 * 1024;
constexpr std::size_t kLongestName = 64 * 1024;

std::vector<unsigned char> BuildIdOf(std::string_view notes)
{
    constexpr char kOwner[] = "GNU";
    ByteReader reader(notes);
    while (!reader.IsAtEnd())
    {
        const auto nameSize = reader.Take<std::uint32_t>();
        const auto bodySize = reader.Take<std::uint32_t>();
        const auto type = reader.Take<std::uint32_t>();
        const std::string_view name = reader.TakeBytes((std::uint64_t{nameSize} + 3) / 4 * 4);
        const std::string_view body = reader.TakeBytes((std::uint64_t{bodySize} + 3) / 4 * 4);
        if (reader.IsGood() && type == elf::kNoteBuildId && name == std::string_view(kOwner, sizeof kOwner))
            return {body.begin(), body.begin() + bodySize};
    }
    return {};
}

/// What is left of a range from a place in it on.
ByteRange From(const ByteRange& range, std::uint64_t place)
{
    return place > range.size ? ByteRange() : ByteRange{range.offset + place, range.size - place};
}
} // namespace

struct ModuleFile::Contents
{
    struct Symbols
    {
        ByteRange entries;
        ByteRange names;
    };

    explicit Contents(UntrustedBytes bytes) : all(std::move(bytes)) {}

    bool Parse()
    {
        elf::Header header;
        if (!all.Read(0, header) || std::memcmp(header.identity, elf::kMagic, sizeof elf::kMagic) != 0)
            return false;
        machine = header.machine;
        ParseParts(header);
        ParseSections(header);
        return true;
    }

    void ParseParts(const elf::Header& header)
    {
        bool hasFirst = false;
        for (std::size_t i = 0; i < std::min<std::size_t>(header.partCount, kMostHeaders); ++i)
        {
            elf::Part part;
            if (!all.Read(header.partsOffset + i * sizeof part, part))
                return;
            if (part.type == elf::kPartLoad && !hasFirst)
            {
                firstAddress = part.address - part.offset;
                hasFirst = true;
            }
            if (part.type != elf::kPartNote || !buildId.empty())
                continue;
            std::string notes(static_cast<std::size_t>(std::min(part.fileSize, kLongestNotes)), '\0');
            if (all.Read(part.offset, notes.data(), notes.size()))
                buildId = BuildIdOf(notes);
        }
    }

    void ParseSections(const elf::Header& header)
    {
        std::vector<elf::Section> sections(std::min<std::size_t>(header.sectionCount, kMostHeaders));
        for (std::size_t i = 0; i < sections.size(); ++i)
        {
            if (!all.Read(header.sectionsOffset + i * sizeof(elf::Section), sections[i]))
                return;
        }
        const ByteRange names =
            header.namesSection < sections.size() ? RangeOf(sections[header.namesSection]) : ByteRange();
        for (const elf::Section& section : sections)
        {
            const ByteRange contents = section.type == elf::kSectionNoBits ? ByteRange() : RangeOf(section);
            if ((section.type == elf::kSectionSymbols || section.type == elf::kSectionDynamicSymbols) &&
                section.link < sections.size())
                symbols.push_back({contents, RangeOf(sections[section.link])});
            std::string name;
            if (all.ReadText(From(names, section.name), kFramesName.size(), name) && name == kFramesName)
            {
                frames = contents;
                framesAddress = section.address;
            }
        }
    }

    ByteRange RangeOf(const elf::Section& section) const
    {
        const ByteRange range{section.offset, section.size};
        return all.Has(range) ? range : ByteRange();
    }

    /// The last function of a table that has a name and covers the address.
    bool FindSymbol(const Symbols& table, std::uint64_t address, elf::Symbol& found) const
    {
        bool isFound = false;
        elf::Symbol symbol;
        for (std::uint64_t at = 0; table.entries.size - at >= sizeof symbol; at += sizeof symbol)
        {
            if (!all.Read(table.entries.offset + at, symbol))
                break;
            if ((symbol.info & 0x0F) != elf::kSymbolFunction || symbol.section == 0 || symbol.name == 0 ||
                address < symbol.value || address - symbol.value >= std::max<std::uint64_t>(symbol.size, 1))
                continue;
            found = symbol;
            isFound = true;
        }
        return isFound;
    }

    static constexpr std::string_view kFramesName = ".eh_frame";

    const UntrustedBytes all;
    std::uint16_t machine = 0;
    std::vector<unsigned char> buildId;
    std::vector<Symbols> symbols;
    ByteRange frames;
    std::uint64_t framesAddress = 0;
    std::uint64_t firstAddress = 0; ///< the virtual address of the file's first byte
};

ModuleFile::ModuleFile(std::unique_ptr<const Contents> contents) noexcept : m_contents(std::move(contents)) {}
ModuleFile::~ModuleFile() = default;

std::unique_ptr<ModuleFile> ModuleFile::Open(const CXTString<wchar_t>& path, const std::vector<unsigned char>& buildId)
{
    if (buildId.empty())
        return nullptr;
    std::shared_ptr<const platform::InputFile> bytes = platform::InputFile::Open(path.GetConstBuffer());
    if (bytes == nullptr || bytes->Size() > kLargestFile)
        return nullptr;
    std::unique_ptr<ModuleFile> file = Read(UntrustedBytes(std::move(bytes)));
    return file != nullptr && file->BuildId() == buildId ? std::move(file) : nullptr;
}

std::unique_ptr<ModuleFile> ModuleFile::Read(UntrustedBytes bytes)
{
    auto contents = std::make_unique<Contents>(std::move(bytes));
    if (!contents->Parse())
        return nullptr;
    return std::unique_ptr<ModuleFile>(new ModuleFile(std::move(contents)));
}

const std::vector<unsigned char>& ModuleFile::BuildId() const noexcept
{
    return m_contents->buildId;
}

bool ModuleFile::FindFunction(std::uint64_t offset, std::string& name, std::uint64_t& offsetInFunction) const
{
    const std::uint64_t address = offset + m_contents->firstAddress;
    for (const Contents::Symbols& table : m_contents->symbols)
    {
        elf::Symbol symbol;
        std::string text;
        if (!m_contents->FindSymbol(table, address, symbol) ||
            !m_contents->all.ReadText(From(table.names, symbol.name), kLongestName, text) || text.empty())
            continue;
        offsetInFunction = address - symbol.value;
        name = platform::Demangled(text.c_str());
        return true;
    }
    return false;
}

FrameStep ModuleFile::LeaveFrame(std::uint64_t offset, FrameState& state, const StackReader& stack) const
{
    if (state.processor->elfMachine != m_contents->machine)
        return FrameStep::kUnknown;
    return LeaveFrameByTable(m_contents->all, m_contents->frames, m_contents->framesAddress,
                             offset + m_contents->firstAddress, state, stack);
}
} // namespace tev
