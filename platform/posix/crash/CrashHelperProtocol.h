#pragma once

#include "platform/CrashNotes.h"
#include "platform/MinidumpWriter.h"

#include <climits>
#include <csignal>
#include <cstdint>
#include <ctime>

#include <sys/types.h>

// The messages between a process and its crash helper, one packet each, over a socket pair of which the helper has one end
// as descriptor 3. The helper ends after the process.
namespace tev::platform
{
constexpr int kHelperSocket = 3;
constexpr std::uint32_t kHelperVersion = 2;

enum class HelperMessage : std::uint32_t
{
    Hello,  ///< of the helper: it is ready; the value is its process identifier
    Traces, ///< a piece of CrashTraces; the value is the size of the whole
    Dump,   ///< write a dump as the DumpOrder says
    Finish, ///< make the report of the traces; the value is the index of the place
    Answer  ///< of the helper, to the last two: 0 for failure, else 1, to a crash 1 and the index of the place
};

struct HelperHead
{
    std::uint32_t version = kHelperVersion;
    HelperMessage message{};
    std::uint32_t value = 0;
};

/// The answer's text is the path of the report that was made.
struct HelperAnswer
{
    HelperHead head;
    char text[PATH_MAX]{};
};

/// The texts of the traces follow one another, each with its terminator, a record with its length before it.
struct TracesPiece
{
    static constexpr std::size_t kMostBytes = std::size_t{32} << 10;

    HelperHead head;
    std::uint32_t offset = 0;
    char bytes[kMostBytes];
};

struct DumpOrder
{
    HelperHead head;
    pid_t thread = 0;
    std::int64_t time = 0; ///< of MonotonicMs; an order that is too old is refused
    std::uint32_t signal = minidump::kNoSignal;
    std::uint32_t signalCode = 0;
    std::uint64_t faultAddress = 0;
    std::uint64_t threadFaults = 0; ///< the address of the table
    bool isCrash = false;           ///< to the places of the traces, with a record; else to `dumpPath`
    bool withDump = true;
    MachineState state{};
    char dumpPath[PATH_MAX]{};
    CrashNotes notes;
};

/// A deadline on both sides: the helper must not stop the process's threads for longer.
constexpr unsigned kDumpTimeoutMs = 4000;

/// The same in all processes. Safe in signal handlers.
inline std::int64_t MonotonicMs() noexcept
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

/// Copies the signal's number, code and address.
inline void DescribeSignal(const siginfo_t* info, DumpOrder& order) noexcept
{
    order.signal = info == nullptr ? minidump::kNoSignal : static_cast<std::uint32_t>(info->si_signo);
    if (info == nullptr)
        return;
    order.signalCode = static_cast<std::uint32_t>(info->si_code);
    const bool hasAddress = info->si_code > 0 && (info->si_signo == SIGSEGV || info->si_signo == SIGBUS ||
                                                  info->si_signo == SIGILL || info->si_signo == SIGFPE);
    order.faultAddress = hasAddress ? reinterpret_cast<std::uintptr_t>(info->si_addr) : 0;
}
} // namespace tev::platform
