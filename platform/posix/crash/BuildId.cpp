#include "platform/posix/crash/BuildId.h"

#include <algorithm>
#include <cstring>

#include <elf.h>
#include <link.h>

namespace tev::platform
{
namespace
{
std::size_t FindInNotes(const unsigned char* notes, std::size_t size, unsigned char* buildId) noexcept
{
    constexpr std::size_t kNoteHeader = 12;
    const auto padded = [](std::size_t length) { return (length + 3) / 4 * 4; };
    std::size_t at = 0;
    while (at + kNoteHeader <= size)
    {
        std::uint32_t nameSize, bodySize, type;
        std::memcpy(&nameSize, notes + at, 4);
        std::memcpy(&bodySize, notes + at + 4, 4);
        std::memcpy(&type, notes + at + 8, 4);
        const std::size_t body = at + kNoteHeader + padded(nameSize);
        if (body > size || bodySize > size - body)
            return 0;
        if (type == NT_GNU_BUILD_ID && nameSize == 4 && std::memcmp(notes + at + kNoteHeader, "GNU", 4) == 0)
        {
            const std::size_t count = std::min<std::size_t>(bodySize, minidump::kLongestBuildId);
            std::memcpy(buildId, notes + body, count);
            return count;
        }
        at = body + padded(bodySize);
    }
    return 0;
}
} // namespace

std::size_t ReadBuildId(DumpedProcess& process, std::uint64_t base, unsigned char (&notes)[kMostNotes],
                        unsigned char* buildId) noexcept
{
    ElfW(Ehdr) header;
    if (!process.Read(base, &header, sizeof header) || std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 ||
        header.e_phentsize != sizeof(ElfW(Phdr)))
        return 0;
    const auto readPart = [&](unsigned index, ElfW(Phdr) & part) {
        return process.Read(base + header.e_phoff + index * sizeof part, &part, sizeof part);
    };
    ElfW(Phdr) part;
    std::uint64_t firstAddress = 0;
    for (unsigned i = 0; i < header.e_phnum && readPart(i, part); ++i)
    {
        if (part.p_type != PT_LOAD)
            continue;
        firstAddress = part.p_vaddr - part.p_offset;
        break;
    }
    for (unsigned i = 0; i < header.e_phnum && readPart(i, part); ++i)
    {
        const std::size_t size = std::min<std::size_t>(part.p_memsz, kMostNotes);
        if (part.p_type != PT_NOTE || !process.Read(base + part.p_vaddr - firstAddress, notes, size))
            continue;
        if (const std::size_t idSize = FindInNotes(notes, size, buildId))
            return idSize;
    }
    return 0;
}
} // namespace tev::platform
