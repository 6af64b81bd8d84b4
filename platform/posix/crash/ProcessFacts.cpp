#include "platform/posix/crash/ProcessFacts.h"

#include "platform/posix/crash/CrashFiles.h"
#include "platform/posix/crash/MachineState.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <ctime>
#include <string_view>

#include <sys/utsname.h>
#include <unistd.h>

namespace tev::platform
{
namespace
{
struct ProcessTimes
{
    std::uint64_t userTicks = 0;
    std::uint64_t kernelTicks = 0;
    std::uint64_t startTicks = 0; ///< since the start of the machine
};

bool ReadTimes(pid_t process, ProcessTimes& times) noexcept
{
    char path[32] = "/proc/";
    constexpr char kFile[] = "/stat";
    std::memcpy(std::to_chars(path + 6, path + 20, process).ptr, kFile, sizeof kFile);
    char bytes[1024];
    std::string_view text(bytes, ReadWhole(path, bytes, sizeof bytes));
    // The second field is a name in brackets, which may hold anything.
    const std::size_t name = text.rfind(')');
    if (name == text.npos)
        return false;
    text.remove_prefix(name + 1);
    constexpr int kUser = 14;
    constexpr int kKernel = 15;
    constexpr int kStart = 22;
    for (int field = 3; field <= kStart; ++field)
    {
        text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
        const std::string_view number = text.substr(0, text.find(' '));
        text.remove_prefix(number.size());
        std::uint64_t* const target = field == kUser     ? &times.userTicks
                                      : field == kKernel ? &times.kernelTicks
                                      : field == kStart  ? &times.startTicks
                                                         : nullptr;
        if (target != nullptr &&
            std::from_chars(number.data(), number.data() + number.size(), *target).ec != std::errc())
            return false;
    }
    return true;
}

std::uint64_t SecondsOf(clockid_t clock) noexcept
{
    timespec now = {};
    clock_gettime(clock, &now);
    return static_cast<std::uint64_t>(now.tv_sec);
}

std::uint64_t TicksPerSecond() noexcept
{
    const long ticks = sysconf(_SC_CLK_TCK);
    return ticks > 0 ? static_cast<std::uint64_t>(ticks) : 100;
}

void Append(char (&text)[sizeof(DumpFacts::versionText)], const char* word) noexcept
{
    if (text[0] != '\0')
        std::strncat(text, " ", sizeof text - std::strlen(text) - 1);
    std::strncat(text, word, sizeof text - std::strlen(text) - 1);
}
} // namespace

void TakeFacts(pid_t process, DumpFacts& facts) noexcept
{
    facts = {};
    facts.platform = minidump::kLinux;
    facts.processor = MinidumpProcessor();
    facts.processorCount = static_cast<std::uint8_t>(std::clamp(sysconf(_SC_NPROCESSORS_ONLN), 1L, 255L));
    facts.time = static_cast<std::uint32_t>(SecondsOf(CLOCK_REALTIME));
    utsname system = {};
    if (uname(&system) == 0)
    {
        const char* at = system.release; // "6.1.0-18-amd64"
        for (std::uint32_t& number : facts.version)
        {
            at = std::from_chars(at, system.release + std::strlen(system.release), number).ptr;
            at += *at == '.' ? 1 : 0;
        }
        for (const char* const word : {system.sysname, system.release, system.version, system.machine})
            Append(facts.versionText, word);
    }
    ProcessTimes times;
    if (!ReadTimes(process, times))
        return;
    const std::uint64_t ticks = TicksPerSecond();
    facts.userSeconds = static_cast<std::uint32_t>(times.userTicks / ticks);
    facts.kernelSeconds = static_cast<std::uint32_t>(times.kernelTicks / ticks);
    const std::uint64_t age = SecondsOf(CLOCK_BOOTTIME) - times.startTicks / ticks;
    facts.processStart = facts.time - static_cast<std::uint32_t>(age);
}

std::uint64_t SecondsSinceStart(pid_t process) noexcept
{
    ProcessTimes times;
    return ReadTimes(process, times) ? SecondsOf(CLOCK_BOOTTIME) - times.startTicks / TicksPerSecond() : 0;
}
} // namespace tev::platform
