#include "platform/MinidumpWriter.h"

#include "platform/MinidumpOutput.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace tev::platform
{
namespace
{
namespace md = minidump;

constexpr std::size_t kMostStreams = 7;
constexpr std::size_t kPage = 4096;
constexpr std::size_t kMostThreads = 8192;
constexpr std::size_t kMostStates = 1000; ///< of further threads only the identifiers
constexpr std::size_t kMostRanges = 2 * kMostStates + 1;
constexpr std::size_t kMostModules = 512;
constexpr std::size_t kLongestModulePath = 1024;
constexpr std::uint64_t kLongestStack = std::uint64_t{256} << 10;
constexpr std::uint64_t kShortestStack = std::uint64_t{4} << 10;
constexpr std::uint64_t kAllStacks = std::uint64_t{5} << 19;
constexpr std::size_t kLongestMapsText = std::size_t{256} << 10;
/// An overflowed stack's pointer lies below its mapping.
constexpr std::uint64_t kOverflowGap = std::uint64_t{64} << 10;
constexpr std::uint64_t kCodeAround = 128;

// A report takes no file of 6 MiB or more, so the sum of all maxima stays below that.
static_assert(2 * kLongestStack + kAllStacks + kMostStates * (MachineState::kMostBytes + 8) +
                  kMostThreads * md::kThreadSize + kMostRanges * md::kMemorySize +
                  kMostModules * (md::kModuleSize + md::kLongestBuildId + 4 + 2 * kLongestModulePath + 16) +
                  kLongestMapsText + kPage <
              std::size_t{6} << 20);
static_assert(DumpOutput::kBufferSize + kPage + sizeof(DumpedThread) + sizeof(DumpedModule) +
                  kMostThreads * md::kThreadSize + kMostRanges * md::kMemorySize + kMostModules * md::kModuleSize +
                  7 * 16 <=
              kDumpWorkspace);

struct Range
{
    std::uint64_t start = 0;
    std::uint32_t size = 0;
    std::uint32_t place = 0; ///< in the file
};

/// Decodes the first character of UTF-8 text and removes it; U+FFFD for an invalid byte.
char32_t TakeCharacter(std::string_view& text) noexcept
{
    const auto first = static_cast<unsigned char>(text[0]);
    const std::size_t length = first < 0x80   ? 1
                               : first < 0xC2 ? 0
                               : first < 0xE0 ? 2
                               : first < 0xF0 ? 3
                               : first < 0xF5 ? 4
                                              : 0;
    char32_t character = length < 2 ? first : first & (0xFFu >> (length + 1));
    bool isValid = length != 0 && length <= text.size();
    for (std::size_t i = 1; i < length && isValid; ++i)
    {
        const auto next = static_cast<unsigned char>(text[i]);
        isValid = (next & 0xC0) == 0x80;
        character = character << 6 | (next & 0x3F);
    }
    text.remove_prefix(isValid ? length : 1);
    return isValid ? character : 0xFFFD;
}

class Writer
{
public:
    Writer(DumpFile& file, const DumpSubject& subject, DumpWorkspace workspace) noexcept
        : m_file(file),
          m_subject(subject),
          m_output(file, workspace.Take(DumpOutput::kBufferSize)),
          m_page(workspace.Take(kPage)),
          m_thread(new (workspace.Take(sizeof(DumpedThread))) DumpedThread),
          m_module(new (workspace.Take(sizeof(DumpedModule))) DumpedModule),
          m_threads(workspace.Take(kMostThreads * md::kThreadSize), md::kThreadSize, kMostThreads),
          m_memory(workspace.Take(kMostRanges * md::kMemorySize), md::kMemorySize, kMostRanges),
          m_modules(workspace.Take(kMostModules * md::kModuleSize), md::kModuleSize, kMostModules)
    {
    }

    bool Write() noexcept
    {
        const unsigned char reserved[md::kHeaderSize + kMostStreams * md::kDirectoryEntrySize] = {};
        m_output.Write(reserved, sizeof reserved);
        WriteThreads();
        WriteList(md::kThreadList, m_threads);
        WriteList(md::kMemoryList, m_memory);
        WriteModules();
        WriteList(md::kModuleList, m_modules);
        WriteException();
        WriteSystemInfo();
        WriteMiscInfo();
        BeginStream(md::kLinuxMaps);
        m_output.Write(m_subject.maps.data(), std::min(m_subject.maps.size(), kLongestMapsText));
        EndStream();
        m_output.Flush();
        return m_output.IsGood() && WriteHeader();
    }

private:
    void BeginStream(std::uint32_t type) noexcept
    {
        m_output.Align();
        m_directory.Add(type);
        m_streamStart = m_output.Position();
    }
    void EndStream() noexcept
    {
        m_directory.Add(m_output.Position() - m_streamStart).Add(m_streamStart);
        ++m_streamCount;
    }
    void WriteList(std::uint32_t type, const DumpTable& table) noexcept
    {
        BeginStream(type);
        m_output.Write(DumpRecord<4>().Add(table.Count()));
        m_output.Write(table.Bytes(), table.Size());
        EndStream();
    }

    bool WriteHeader() noexcept
    {
        DumpRecord<md::kHeaderSize + kMostStreams * md::kDirectoryEntrySize> start;
        start.Add(md::kSignature).Add(md::kVersion).Add(m_streamCount);
        start.Add(static_cast<std::uint32_t>(md::kHeaderSize)).Zeros(4).Add(m_subject.facts.time).Zeros(8);
        for (std::size_t i = 0; i < m_directory.Size(); ++i)
            start.Add(m_directory.Bytes()[i]);
        return m_file.Overwrite(start.Bytes(), start.Size());
    }

    void WriteThreads() noexcept
    {
        const std::size_t count = std::min(m_subject.process.ThreadCount(), kMostThreads);
        const std::uint64_t share =
            std::clamp(kAllStacks / std::max<std::size_t>(count, 1) / kPage * kPage, kShortestStack, kLongestStack);
        std::uint64_t left = kAllStacks;
        for (std::size_t i = 0; i < count; ++i)
        {
            m_subject.process.GetThread(i, *m_thread);
            if (i >= kMostStates)
                m_thread->state.size = 0;
            const std::uint64_t limit = i == 0 ? kLongestStack : std::min(share, left);
            const std::uint64_t written = WriteThread(*m_thread, i == 0, limit);
            left -= i == 0 ? 0 : std::min(left, written);
        }
    }

    /// Returns how much of the thread's stacks was written.
    std::uint64_t WriteThread(const DumpedThread& thread, bool isFirst, std::uint64_t limit) noexcept
    {
        const MachineState& state = thread.state;
        Range stack;
        std::uint32_t statePlace = 0;
        std::uint64_t written = 0;
        if (state.size != 0)
        {
            m_output.Align();
            statePlace = m_output.Position();
            m_output.Write(state.bytes, state.size);
            stack = WriteStack(state.stackPointer, limit);
            written = stack.size;
            if (const std::uint64_t interrupted = m_subject.process.InterruptedStack(state.stackPointer))
                written += WriteStack(interrupted, limit).size;
            if (isFirst)
                WriteCode(state.instruction);
        }
        m_threads.Add(DumpRecord<md::kThreadSize>()
                          .Add(thread.id)
                          .Zeros(20)
                          .Add(stack.start)
                          .Add(stack.size)
                          .Add(stack.place)
                          .Add(state.size)
                          .Add(statePlace));
        if (isFirst)
        {
            m_firstThread = thread.id;
            m_firstStateSize = state.size;
            m_firstState = statePlace;
        }
        return written;
    }

    Range WriteStack(std::uint64_t pointer, std::uint64_t limit) noexcept
    {
        DumpedMapping mapping;
        if (!m_subject.process.FindMapping(pointer, mapping))
            return {};
        const bool isGuard = !mapping.isWritable; // directly below an overflowed stack
        if (isGuard && !m_subject.process.FindMapping(mapping.end, mapping))
            return {};
        if (!mapping.isWritable || (mapping.start > pointer && mapping.start - pointer > kOverflowGap))
            return {};
        const std::uint64_t start = std::max(mapping.start, pointer & ~std::uint64_t{15});
        return WriteMemory(start, std::min(mapping.end, start + limit));
    }

    /// The bytes around the instruction of the fault.
    void WriteCode(std::uint64_t instruction) noexcept
    {
        DumpedMapping mapping;
        if (!m_subject.process.FindMapping(instruction, mapping) || instruction < mapping.start || !mapping.isReadable)
            return;
        const std::uint64_t before = std::min(instruction - mapping.start, kCodeAround);
        WriteMemory(instruction - before, std::min(mapping.end, instruction + kCodeAround));
    }

    Range WrittenRange(std::uint32_t index) const noexcept
    {
        const unsigned char* const at = m_memory.Bytes() + index * md::kMemorySize;
        Range range;
        std::memcpy(&range.start, at, sizeof range.start);
        std::memcpy(&range.size, at + 8, sizeof range.size);
        std::memcpy(&range.place, at + 12, sizeof range.place);
        return range;
    }

    /// Writes memory up to `end`, the first page that cannot be read, or a range written before. Returns where the memory
    /// from `start` on is in the file, which may be within an earlier range.
    Range WriteMemory(std::uint64_t start, std::uint64_t end) noexcept
    {
        for (std::uint32_t i = 0; i < m_memory.Count(); ++i)
        {
            const Range other = WrittenRange(i);
            if (other.start > start)
            {
                end = std::min(end, other.start);
                continue;
            }
            const std::uint64_t inside = start - other.start;
            if (inside < other.size)
                return {start, static_cast<std::uint32_t>(std::min(end - start, other.size - inside)),
                        static_cast<std::uint32_t>(other.place + inside)};
        }
        Range range;
        range.place = m_output.Position();
        range.start = start;
        std::uint64_t at = start;
        while (at < end && !m_memory.IsFull())
        {
            const std::size_t count = static_cast<std::size_t>(std::min<std::uint64_t>(kPage - at % kPage, end - at));
            if (!m_subject.process.Read(at, m_page, count))
                break;
            m_output.Write(m_page, count);
            at += count;
        }
        range.size = static_cast<std::uint32_t>(at - start);
        if (range.size != 0)
            m_memory.Add(DumpRecord<md::kMemorySize>().Add(range.start).Add(range.size).Add(range.place));
        return range;
    }

    void WriteModules() noexcept
    {
        for (std::uint64_t from = 0; !m_modules.IsFull() && m_subject.process.FindModule(from, *m_module);
             from = m_module->end)
            WriteModule(*m_module);
    }

    void WriteModule(const DumpedModule& module) noexcept
    {
        m_output.Align();
        const std::uint32_t idPlace = m_output.Position();
        if (module.buildIdSize != 0)
        {
            m_output.Write(DumpRecord<4>().Add(md::kBuildIdRecord));
            m_output.Write(module.buildId, module.buildIdSize);
        }
        const std::uint32_t namePlace = WriteName(module.path);
        const auto idRecordSize = static_cast<std::uint32_t>(module.buildIdSize == 0 ? 0 : module.buildIdSize + 4);
        m_modules.Add(DumpRecord<md::kModuleSize>()
                          .Add(module.start)
                          .Add(static_cast<std::uint32_t>(module.end - module.start))
                          .Zeros(8)
                          .Add(namePlace)
                          .Zeros(52)
                          .Add(idRecordSize)
                          .Add(idPlace)
                          .Zeros(24));
    }

    /// Writes a name as UTF-16. Invalid UTF-8 becomes U+FFFD.
    std::uint32_t WriteName(std::string_view name) noexcept
    {
        m_output.Align();
        const std::uint32_t place = m_output.Position();
        auto* const units = reinterpret_cast<char16_t*>(m_page);
        std::size_t count = 0;
        name = name.substr(0, kLongestModulePath);
        while (!name.empty())
        {
            const char32_t character = TakeCharacter(name);
            if (character < 0x10000)
                units[count++] = static_cast<char16_t>(character);
            else
            {
                units[count++] = static_cast<char16_t>(0xD800 + ((character - 0x10000) >> 10));
                units[count++] = static_cast<char16_t>(0xDC00 + (character & 0x3FF));
            }
        }
        m_output.Write(DumpRecord<4>().Add(static_cast<std::uint32_t>(count * sizeof(char16_t))));
        units[count] = 0;
        m_output.Write(units, (count + 1) * sizeof(char16_t));
        return place;
    }

    void WriteException() noexcept
    {
        BeginStream(md::kException);
        m_output.Write(DumpRecord<md::kExceptionSize>()
                           .Add(m_firstThread)
                           .Zeros(4)
                           .Add(m_subject.signal)
                           .Add(m_subject.signalCode)
                           .Zeros(8)
                           .Add(m_subject.faultAddress)
                           .Zeros(8 + 15 * 8)
                           .Add(m_firstStateSize)
                           .Add(m_firstState));
        EndStream();
    }

    void WriteSystemInfo() noexcept
    {
        const DumpFacts& facts = m_subject.facts;
        const std::uint32_t versionText = WriteName(facts.versionText);
        BeginStream(md::kSystemInfo);
        m_output.Write(DumpRecord<md::kSystemInfoSize>()
                           .Add(facts.processor)
                           .Zeros(4)
                           .Add(facts.processorCount)
                           .Zeros(1)
                           .Add(facts.version[0])
                           .Add(facts.version[1])
                           .Add(facts.version[2])
                           .Add(facts.platform)
                           .Add(versionText)
                           .Zeros(4 + 24));
        EndStream();
    }

    void WriteMiscInfo() noexcept
    {
        const DumpFacts& facts = m_subject.facts;
        const std::uint32_t times = facts.processStart != 0 ? md::kHasProcessTimes : 0;
        BeginStream(md::kMiscInfo);
        m_output.Write(DumpRecord<md::kMiscInfoSize>()
                           .Add(static_cast<std::uint32_t>(md::kMiscInfoSize))
                           .Add(md::kHasProcessId | times)
                           .Add(m_subject.processId)
                           .Add(facts.processStart)
                           .Add(facts.userSeconds)
                           .Add(facts.kernelSeconds));
        EndStream();
    }

    DumpFile& m_file;
    const DumpSubject& m_subject;
    DumpOutput m_output;
    unsigned char* const m_page;
    DumpedThread* const m_thread;
    DumpedModule* const m_module;
    DumpTable m_threads;
    DumpTable m_memory;
    DumpTable m_modules;
    DumpRecord<kMostStreams * md::kDirectoryEntrySize> m_directory;
    std::uint32_t m_streamCount = 0;
    std::uint32_t m_streamStart = 0;
    std::uint32_t m_firstThread = 0;
    std::uint32_t m_firstStateSize = 0;
    std::uint32_t m_firstState = 0;
};
} // namespace

bool WriteMinidump(DumpFile& file, const DumpSubject& subject, void* workspace) noexcept
{
    return Writer(file, subject, DumpWorkspace(workspace)).Write();
}
} // namespace tev::platform
