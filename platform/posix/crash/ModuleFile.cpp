#include "platform/ModuleFile.h"

#include "base/ByteReader.h"
#include "platform/posix/crash/FrameRules.h"
#include "platform/posix/files/OwnedDescriptor.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <cxxabi.h>
#include <elf.h>
#include <fcntl.h>
#include <sys/stat.h>

namespace tev::platform
{
namespace
{
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
        if (reader.IsGood() && type == NT_GNU_BUILD_ID && name == std::string_view(kOwner, sizeof kOwner))
            return {body.begin(), body.begin() + bodySize};
    }
    return {};
}

std::string Demangled(const char* name)
{
    int status = 0;
    char* const text = abi::__cxa_demangle(name, nullptr, nullptr, &status);
    std::string result = status == 0 && text != nullptr ? text : name;
    std::free(text);
    return result;
}

bool ReadFile(const std::string& path, std::vector<unsigned char>& bytes)
{
    const OwnedDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status;
    if (file.Get() < 0 || fstat(file.Get(), &status) != 0 || !S_ISREG(status.st_mode) ||
        static_cast<std::uint64_t>(status.st_size) > kLargestFile)
        return false;
    bytes.resize(static_cast<std::size_t>(status.st_size));
    std::size_t size = 0;
    while (size < bytes.size())
    {
        const ssize_t count = read(file.Get(), bytes.data() + size, bytes.size() - size);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return false;
        size += static_cast<std::size_t>(count);
    }
    return true;
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
        Elf64_Ehdr header;
        if (!ReadAt(all, 0, header) || std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 ||
            header.e_ident[EI_CLASS] != ELFCLASS64 || header.e_ident[EI_DATA] != ELFDATA2LSB ||
            header.e_machine != EM_X86_64)
            return false;
        ParseParts(header);
        ParseSections(header);
        return true;
    }

    void ParseParts(const Elf64_Ehdr& header)
    {
        bool hasFirst = false;
        for (std::size_t i = 0; i < std::min<std::size_t>(header.e_phnum, kMostHeaders); ++i)
        {
            Elf64_Phdr part;
            if (!ReadAt(all, header.e_phoff + i * sizeof part, part))
                return;
            if (part.p_type == PT_LOAD && !hasFirst)
            {
                firstAddress = part.p_vaddr - part.p_offset;
                hasFirst = true;
            }
            if (part.p_type == PT_NOTE && buildId.empty())
                buildId = BuildIdOf(Piece(all, part.p_offset, part.p_filesz));
        }
    }

    void ParseSections(const Elf64_Ehdr& header)
    {
        std::vector<Elf64_Shdr> sections(std::min<std::size_t>(header.e_shnum, kMostHeaders));
        for (std::size_t i = 0; i < sections.size(); ++i)
        {
            if (!ReadAt(all, header.e_shoff + i * sizeof(Elf64_Shdr), sections[i]))
                return;
        }
        std::string_view names;
        if (header.e_shstrndx < sections.size())
            names = Piece(all, sections[header.e_shstrndx].sh_offset, sections[header.e_shstrndx].sh_size);
        for (const Elf64_Shdr& section : sections)
        {
            const std::string_view contents =
                section.sh_type == SHT_NOBITS ? std::string_view() : Piece(all, section.sh_offset, section.sh_size);
            if ((section.sh_type == SHT_SYMTAB || section.sh_type == SHT_DYNSYM) && section.sh_link < sections.size())
            {
                const Elf64_Shdr& texts = sections[section.sh_link];
                symbols.push_back({contents, Piece(all, texts.sh_offset, texts.sh_size)});
            }
            ByteReader name(
                Piece(names, section.sh_name, names.size() - std::min<std::size_t>(section.sh_name, names.size())));
            if (name.TakeText() == ".eh_frame")
            {
                frames = contents;
                framesAddress = section.sh_addr;
            }
        }
    }

    std::vector<unsigned char> bytes;
    std::string_view all;
    std::vector<unsigned char> buildId;
    std::vector<Symbols> symbols;
    std::string_view frames;
    std::uint64_t framesAddress = 0;
    std::uint64_t firstAddress = 0; ///< the virtual address of the file's first byte
};

ModuleFile::ModuleFile(std::unique_ptr<const Contents> contents) noexcept : m_contents(std::move(contents)) {}
ModuleFile::~ModuleFile() = default;

std::unique_ptr<ModuleFile> ModuleFile::Open(const std::string& path, const std::vector<unsigned char>& buildId)
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
            const auto symbol = reader.Take<Elf64_Sym>();
            if (!reader.IsGood() || ELF64_ST_TYPE(symbol.st_info) != STT_FUNC || symbol.st_shndx == SHN_UNDEF ||
                address < symbol.st_value || address - symbol.st_value >= std::max<std::uint64_t>(symbol.st_size, 1))
                continue;
            ByteReader text(Piece(table.names, symbol.st_name,
                                  table.names.size() - std::min<std::size_t>(symbol.st_name, table.names.size())));
            const std::string_view candidate = text.TakeText();
            if (!text.IsGood() || candidate.empty())
                continue;
            found = candidate;
            offsetInFunction = address - symbol.st_value;
        }
        if (!found.empty())
            break;
    }
    if (found.empty())
        return false;
    name = Demangled(std::string(found).c_str());
    return true;
}

bool ModuleFile::LeaveFrame(std::uint64_t offset, FrameState& state, const StackReader& stack) const
{
    return LeaveFrameByTable(m_contents->frames, m_contents->framesAddress, offset + m_contents->firstAddress, state,
                             stack);
}
} // namespace tev::platform
