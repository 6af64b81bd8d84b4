#pragma once

#include <cstddef>
#include <cstdint>

// The layout of minidumps, for what writes and what reads them. Numbers are little-endian, records are packed.
namespace tev::minidump
{
constexpr std::uint32_t kSignature = 0x504D444D; // 'MDMP'
constexpr std::uint32_t kVersion = 0xA793;       ///< in the low half
constexpr std::size_t kHeaderSize = 32;
constexpr std::size_t kDirectoryEntrySize = 12;

enum Stream : std::uint32_t
{
    kThreadList = 3,
    kModuleList = 4,
    kMemoryList = 5,
    kException = 6,
    kSystemInfo = 7,
    kMiscInfo = 15,
    kLinuxMaps = 0x47670009
};

// The records of the streams, and the sizes of those at the start of a list.
constexpr std::size_t kThreadSize = 48;
constexpr std::size_t kModuleSize = 108;
constexpr std::size_t kMemorySize = 16;
constexpr std::size_t kExceptionSize = 168;
constexpr std::size_t kSystemInfoSize = 56;
constexpr std::size_t kMiscInfoSize = 24;

constexpr std::uint32_t kBuildIdRecord = 0x4270454C; ///< before the build identifier of a module
constexpr std::size_t kLongestBuildId = 64;
constexpr std::uint32_t kNoSignal = 0xFFFFFFFF; ///< of a dump that was requested without a fault

// What the record of the process says, as flags.
constexpr std::uint32_t kHasProcessId = 1;
constexpr std::uint32_t kHasProcessTimes = 2;

enum Platform : std::uint32_t
{
    kWindows = 2, ///< that of NT; lower numbers are its predecessors
    kMacOs = 0x8101,
    kIos = 0x8102,
    kLinux = 0x8201,
    kSolaris = 0x8202,
    kAndroid = 0x8203
};

enum Processor : std::uint16_t
{
    kX86 = 0,
    kArm = 5,
    kX64 = 9,
    kArm64 = 12,
    kUnknownProcessor = 0xFFFF
};
} // namespace tev::minidump
