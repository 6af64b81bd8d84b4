#include "crash/ModuleFile.h"

#include "base/ByteReader.h"
#include "crash/Attempt.h"
#include "crash/ElfFormat.h"
#include "crash/Processor.h"
#include "files/CXFile.h"
#include "platform/Demangling.h"
#include "platform/FileInformation.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace tev
{
namespace
{
using platform::ByteReader;

constexpr std::uint64_t kLargestFile = std::uint64_t{512} << 20;
constexpr std::size_t kMostHeaders = 4096;

std::string_view Piece(std::string_view bytes, std::uint64_t offset, std::uint64_t size)
{
    return offset > bytes.size() || size > bytes.size() - offset
               ? std::string_view()
               : bytes.substr(static_cast<std::size_t>(offset), static_cast<std::size_t>(size));
}

template <class T>
bool ReadAt(std::string_view bytes, std::uint64_t offset, T& value)
{
    const std::string_view piece = Piece(bytes, offset, sizeof value);
    if (piece.empty())
        return false;
    std::memcpy(&value, piece.data(), sizeof value);
    return true;
}

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

bool ReadFile(const CXTString<wchar_t>& path, std::vector<unsigned char>& bytes)
{
    platform::FileInformation information;
    if (!platform::GetFileInformation(path, information) || information.kind != platform::FileKind::File)
        return false;
    bool isRead = false;
    Attempt([&] {
        CXFile file(path, CXFile::modeRead | CXFile::shareDenyNone);
        if (file.GetLength() > kLargestFile)
            return;
        bytes.resize(static_cast<std::size_t>(file.GetLength()));
        isRead = file.Read(bytes.data(), static_cast<unsigned>(bytes.size())) == bytes.size();
    });
    return isRead;
}
} // namespace

struct ModuleFile::Contents
{
    struct Symbols
    {
        std::string_view entries;
        std::string_view names;
    };

    bool Parse()
    {
        all = {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
        elf::Header header;
        if (!ReadAt(all, 0, header) || std::memcmp(header.identity, elf::kMagic, sizeof elf::kMagic) != 0)
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
            if (!ReadAt(all, header.partsOffset + i * sizeof part, part))
                return;
            if (part.type == elf::kPartLoad && !hasFirst)
            {
                firstAddress = part.address - part.offset;
                hasFirst = true;
            }
            if (part.type == elf::kPartNote && buildId.empty())
                buildId = BuildIdOf(Piece(all, part.offset, part.fileSize));
        }
    }

    void ParseSections(const elf::Header& header)
    {
        std::vector<elf::Section> sections(std::min<std::size_t>(header.sectionCount, kMostHeaders));
        for (std::size_t i = 0; i < sections.size(); ++i)
        {
            if (!ReadAt(all, header.sectionsOffset + i * sizeof(elf::Section), sections[i]))
                return;
        }
        std::string_view names;
        if (header.namesSection < sections.size())
            names = Piece(all, sections[header.namesSection].offset, sections[header.namesSection].size);
        for (const elf::Section& section : sections)
        {
            const std::string_view contents =
                section.type == elf::kSectionNoBits ? std::string_view() : Piece(all, section.offset, section.size);
            if ((section.type == elf::kSectionSymbols || section.type == elf::kSectionDynamicSymbols) &&
                section.link < sections.size())
            {
                const elf::Section& texts = sections[section.link];
                symbols.push_back({contents, Piece(all, texts.offset, texts.size)});
            }
            ByteReader name(
                Piece(names, section.name, names.size() - std::min<std::size_t>(section.name, names.size())));
            if (name.TakeText() == ".eh_frame")
            {
                frames = contents;
                framesAddress = section.address;
            }
        }
    }

    std::vector<unsigned char> bytes;
    std::string_view all;
    std::uint16_t machine = 0;
    std::vector<unsigned char> buildId;
    std::vector<Symbols> symbols;
    std::string_view frames;
    std::uint64_t framesAddress = 0;
    std::uint64_t firstAddress = 0; ///< the virtual address of the file's first byte
};

ModuleFile::ModuleFile(std::unique_ptr<const Contents> contents) noexcept : m_contents(std::move(contents)) {}
ModuleFile::~ModuleFile() = default;

std::unique_ptr<ModuleFile> ModuleFile::Open(const CXTString<wchar_t>& path, const std::vector<unsigned char>& buildId)
{
    std::vector<unsigned char> bytes;
    if (buildId.empty() || !ReadFile(path, bytes))
        return nullptr;
    std::unique_ptr<ModuleFile> file = Read(std::move(bytes));
    return file != nullptr && file->BuildId() == buildId ? std::move(file) : nullptr;
}

std::unique_ptr<ModuleFile> ModuleFile::Read(std::vector<unsigned char> bytes)
{
    auto contents = std::make_unique<Contents>();
    contents->bytes = std::move(bytes);
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
    std::string_view found;
    for (const Contents::Symbols& table : m_contents->symbols)
    {
        ByteReader reader(table.entries);
        while (!reader.IsAtEnd())
        {
            const auto symbol = reader.Take<elf::Symbol>();
            if (!reader.IsGood() || (symbol.info & 0x0F) != elf::kSymbolFunction || symbol.section == 0 ||
                address < symbol.value || address - symbol.value >= std::max<std::uint64_t>(symbol.size, 1))
                continue;
            ByteReader text(Piece(table.names, symbol.name,
                                  table.names.size() - std::min<std::size_t>(symbol.name, table.names.size())));
            const std::string_view candidate = text.TakeText();
            if (!text.IsGood() || candidate.empty())
                continue;
            found = candidate;
            offsetInFunction = address - symbol.value;
        }
        if (!found.empty())
            break;
    }
    if (found.empty())
        return false;
    name = platform::Demangled(std::string(found).c_str());
    return true;
}

FrameStep ModuleFile::LeaveFrame(std::uint64_t offset, FrameState& state, const StackReader& stack) const
{
    if (state.processor->elfMachine != m_contents->machine)
        return FrameStep::kUnknown;
    return LeaveFrameByTable(m_contents->frames, m_contents->framesAddress, offset + m_contents->firstAddress, state,
                             stack);
}
} // namespace tev
