#pragma once

#include "platform/posix/crash/MachineState.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tev::platform
{
/// The memory of the process that is dumped.
class DumpedMemory
{
public:
    /// Copies bytes; false when not all of them can be read. Safe in signal handlers.
    virtual bool Read(std::uint64_t address, void* buffer, std::size_t size) noexcept = 0;

protected:
    ~DumpedMemory() = default;
};

struct DumpedThread
{
    std::uint32_t id = 0;
    bool hasState = false; ///< else the dump holds neither registers nor stack of the thread
    MachineState state;
};

/// The threads of the process, the one with the fault first.
class DumpedThreads
{
public:
    virtual std::size_t Count() const noexcept = 0;
    /// Safe in signal handlers.
    virtual void Get(std::size_t index, DumpedThread& thread) noexcept = 0;

protected:
    ~DumpedThreads() = default;
};

/// The signal of a dump that was requested without a fault.
constexpr std::uint32_t kNoSignal = 0xFFFFFFFF;

struct DumpSubject
{
    std::uint32_t processId = 0;
    std::uint32_t signal = kNoSignal;
    std::uint32_t signalCode = 0;
    std::uint64_t faultAddress = 0;
    std::string_view maps; ///< the text of the process's list of mappings
    DumpedMemory& memory;
    DumpedThreads& threads;
};

/// The size of the memory that WriteMinidump works in.
constexpr std::size_t kDumpWorkspace = std::size_t{1} << 20;

/// Writes a minidump into an empty file: threads with registers and stacks, modules, the signal. It stays below 6 MiB: the
/// more threads there are, the less of each stack is written, but the first thread gets 256 KiB. False when it cannot be
/// written. Allocates nothing and needs little stack; safe in signal handlers.
[[nodiscard]] bool WriteMinidump(int file, const DumpSubject& subject, void* workspace) noexcept;
} // namespace tev::platform
