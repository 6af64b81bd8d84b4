#pragma once

#include <cstddef>
#include <cstdint>

// The parts of 64-bit ELF files that ModuleFile reads.
namespace tev::elf
{
constexpr unsigned char kMagic[] = {0x7F, 'E', 'L', 'F', 2, 1}; ///< 64 bits, little-endian
constexpr std::uint32_t kPartLoad = 1;
constexpr std::uint32_t kPartNote = 4;
constexpr std::uint32_t kSectionSymbols = 2;
constexpr std::uint32_t kSectionNoBits = 8;
constexpr std::uint32_t kSectionDynamicSymbols = 11;
constexpr std::uint32_t kNoteBuildId = 3;
constexpr unsigned char kSymbolFunction = 2; ///< in the low four bits

struct Header
{
    unsigned char identity[16];
    std::uint16_t type;
    std::uint16_t machine;
    std::uint32_t version;
    std::uint64_t entry;
    std::uint64_t partsOffset;
    std::uint64_t sectionsOffset;
    std::uint32_t flags;
    std::uint16_t headerSize;
    std::uint16_t partSize;
    std::uint16_t partCount;
    std::uint16_t sectionSize;
    std::uint16_t sectionCount;
    std::uint16_t namesSection;
};

struct Part
{
    std::uint32_t type;
    std::uint32_t flags;
    std::uint64_t offset;
    std::uint64_t address;
    std::uint64_t physicalAddress;
    std::uint64_t fileSize;
    std::uint64_t memorySize;
    std::uint64_t alignment;
};

struct Section
{
    std::uint32_t name;
    std::uint32_t type;
    std::uint64_t flags;
    std::uint64_t address;
    std::uint64_t offset;
    std::uint64_t size;
    std::uint32_t link;
    std::uint32_t info;
    std::uint64_t alignment;
    std::uint64_t entrySize;
};

struct Symbol
{
    std::uint32_t name;
    unsigned char info;
    unsigned char other;
    std::uint16_t section; ///< 0: undefined
    std::uint64_t value;
    std::uint64_t size;
};

static_assert(sizeof(Header) == 64 && sizeof(Part) == 56 && sizeof(Section) == 64 && sizeof(Symbol) == 24);
} // namespace tev::elf
