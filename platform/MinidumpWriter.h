#pragma once

#include "platform/DumpFile.h"
#include "platform/MinidumpFormat.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tev::platform
{
/// The registers of a thread, in the form in which a minidump holds them.
struct MachineState
{
    static constexpr std::size_t kMostBytes = 1232;

    std::uint32_t size = 0; ///< 0 when the registers are unknown
    std::uint64_t stackPointer = 0;
    std::uint64_t instruction = 0;
    unsigned char bytes[kMostBytes];
};

struct DumpedThread
{
    std::uint32_t id = 0;
    MachineState state; ///< of size 0: the dump holds neither registers nor stack of the thread
};

struct DumpedMapping
{
    std::uint64_t start = 0;
    std::uint64_t end = 0;
    bool isReadable = false;
    bool isWritable = false;
};

/// A program or library.
struct DumpedModule
{
    std::uint64_t start = 0;
    std::uint64_t end = 0;
    std::string_view path; ///< UTF-8, valid until the next module is asked for
    unsigned char buildId[minidump::kLongestBuildId];
    std::size_t buildIdSize = 0; ///< 0 when there is none
};

/// The process that is dumped. All functions are safe in signal handlers.
class DumpedProcess
{
public:
    /// Copies memory; false when not all of it can be read.
    virtual bool Read(std::uint64_t address, void* buffer, std::size_t size) noexcept = 0;
    /// The threads, the one with the fault first.
    virtual std::size_t ThreadCount() const noexcept = 0;
    virtual void GetThread(std::size_t index, DumpedThread& thread) noexcept = 0;
    /// The first mapping that ends above the address; false when there is none.
    virtual bool FindMapping(std::uint64_t address, DumpedMapping& mapping) noexcept = 0;
    /// The first module at or above the address; false when there is none.
    virtual bool FindModule(std::uint64_t address, DumpedModule& module) noexcept = 0;
    /// The stack pointer before the signal handler that runs on an alternate stack at `stackPointer`; 0 when no handler does.
    virtual std::uint64_t InterruptedStack(std::uint64_t stackPointer) noexcept = 0;

protected:
    ~DumpedProcess() = default;
};

/// What a dump says of the machine and of the process as a whole. Times are in seconds, points in time since 1970.
struct DumpFacts
{
    std::uint16_t processor = minidump::kUnknownProcessor;
    std::uint8_t processorCount = 0;
    std::uint32_t platform = 0;
    std::uint32_t version[3] = {}; ///< of the system: major, minor, build
    char versionText[256] = {};
    std::uint32_t time = 0;
    std::uint32_t processStart = 0; ///< 0: this and the following are unknown
    std::uint32_t userSeconds = 0;
    std::uint32_t kernelSeconds = 0;
};

struct DumpSubject
{
    std::uint32_t processId = 0;
    std::uint32_t signal = minidump::kNoSignal;
    std::uint32_t signalCode = 0;
    std::uint64_t faultAddress = 0;
    std::string_view maps; ///< the text of the process's list of mappings, where the system has one
    const DumpFacts& facts;
    DumpedProcess& process;
};

/// The size of the memory that WriteMinidump works in.
constexpr std::size_t kDumpWorkspace = std::size_t{1} << 20;

/// Writes a minidump into an empty file: threads with registers and stacks, modules, the signal. It stays below 6 MiB: the
/// more threads there are, the less of each stack is written, but the first thread gets 256 KiB. Of a thread in a signal
/// handler on an alternate stack both stacks are written. No two ranges of memory overlap. False when it cannot be written.
/// Allocates nothing and needs little stack; safe in signal handlers.
[[nodiscard]] bool WriteMinidump(DumpFile& file, const DumpSubject& subject, void* workspace) noexcept;
} // namespace tev::platform
