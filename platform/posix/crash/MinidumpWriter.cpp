#include "platform/posix/crash/MinidumpWriter.h"

#include "platform/posix/crash/CrashFiles.h"
#include "platform/posix/crash/ProcessMaps.h"

#include <algorithm>
#include <cstring>
#include <new>

#include <elf.h>
#include <link.h>
#include <unistd.h>

namespace tev::platform
{
namespace
{
enum StreamType : std::uint32_t
{
    kThreadList = 3,
    kModuleList = 4,
    kMemoryList = 5,
    kExceptionStream = 6,
    kSystemInfo = 7,
    kMiscInfo = 15,
    kLinuxMaps = 0x47670009
};
constexpr std::size_t kMostStreams = 7;

constexpr std::uint32_t kSignature = 0x504D444D; // 'MDMP'
constexpr std::uint32_t kVersion = 0xA793;
constexpr std::uint16_t kProcessorX64 = 9;
constexpr std::uint32_t kPlatformLinux = 0x8201;
constexpr std::uint32_t kBuildIdRecord = 0x4270454C;
constexpr std::size_t kHeaderSize = 32;
constexpr std::size_t kDirectoryEntrySize = 12;
constexpr std::size_t kThreadSize = 48;
constexpr std::size_t kMemorySize = 16;
constexpr std::size_t kModuleSize = 108;

constexpr std::size_t kPage = 4096;
constexpr std::size_t kOutputBuffer = std::size_t{64} << 10;
constexpr std::size_t kMostThreads = 8192;
constexpr std::size_t kMostStates = 1000; ///< of further threads only the identifiers
constexpr std::size_t kMostModules = 512;
constexpr std::size_t kLongestModulePath = 1024;
constexpr std::uint64_t kLongestStack = std::uint64_t{256} << 10;
constexpr std::uint64_t kShortestStack = std::uint64_t{4} << 10;
constexpr std::uint64_t kAllStacks = std::uint64_t{5} << 19;
constexpr std::size_t kLongestMapsText = std::size_t{256} << 10;
/// An overflowed stack's pointer lies below its mapping.
constexpr std::uint64_t kOverflowGap = std::uint64_t{64} << 10;
constexpr std::uint64_t kCodeAround = 128;
constexpr std::size_t kMostNotes = 4096;
constexpr std::size_t kLongestBuildId = 64;

// A report takes no file of 6 MiB or more, so the sum of all maxima stays below that.
static_assert(kLongestStack + kAllStacks + kMostStates * (MachineState::kSize + 8) +
                  kMostThreads * (kThreadSize + kMemorySize) +
                  kMostModules * (kModuleSize + kLongestBuildId + 4 + 2 * kLongestModulePath + 16) + kLongestMapsText +
                  kPage <
              std::size_t{6} << 20);

/// Composes a record by appending fields.
template <std::size_t CAPACITY>
class Record
{
public:
    template <class T>
    Record& Add(T value) noexcept
    {
        std::memcpy(m_bytes + m_size, &value, sizeof value);
        m_size += sizeof value;
        return *this;
    }
    Record& Zeros(std::size_t count) noexcept
    {
        std::memset(m_bytes + m_size, 0, count);
        m_size += count;
        return *this;
    }
    const unsigned char* Bytes() const noexcept { return m_bytes; }
    std::size_t Size() const noexcept { return m_size; }

private:
    unsigned char m_bytes[CAPACITY];
    std::size_t m_size = 0;
};

class Output
{
public:
    Output(int file, char* buffer) noexcept : m_file(file), m_buffer(buffer) {}

    std::uint32_t Position() const noexcept { return static_cast<std::uint32_t>(m_written + m_used); }
    void Write(const void* bytes, std::size_t size) noexcept
    {
        const auto* at = static_cast<const char*>(bytes);
        while (size != 0 && m_isGood)
        {
            const std::size_t count = std::min(size, kOutputBuffer - m_used);
            std::memcpy(m_buffer + m_used, at, count);
            m_used += count;
            at += count;
            size -= count;
            if (m_used == kOutputBuffer)
                Flush();
        }
    }
    template <std::size_t CAPACITY>
    void Write(const Record<CAPACITY>& record) noexcept
    {
        Write(record.Bytes(), record.Size());
    }
    void Align() noexcept
    {
        constexpr char kZeros[8] = {};
        Write(kZeros, (8 - Position() % 8) % 8);
    }
    void Flush() noexcept
    {
        m_isGood = m_isGood && WriteAllBytes(m_file, m_buffer, m_used);
        m_written += m_used;
        m_used = 0;
    }
    bool IsGood() const noexcept { return m_isGood; }

private:
    const int m_file;
    char* const m_buffer;
    std::size_t m_used = 0;
    std::uint64_t m_written = 0;
    bool m_isGood = true;
};

/// A list of records of one size in memory that the caller provides; what does not fit is left out.
class Table
{
public:
    Table(unsigned char* memory, std::size_t recordSize, std::size_t most) noexcept
        : m_memory(memory), m_recordSize(recordSize), m_most(most)
    {
    }
    template <std::size_t CAPACITY>
    void Add(const Record<CAPACITY>& record) noexcept
    {
        if (IsFull())
            return;
        std::memcpy(m_memory + m_count * m_recordSize, record.Bytes(), m_recordSize);
        ++m_count;
    }
    bool IsFull() const noexcept { return m_count == m_most; }
    std::uint32_t Count() const noexcept { return static_cast<std::uint32_t>(m_count); }
    const unsigned char* Bytes() const noexcept { return m_memory; }
    std::size_t Size() const noexcept { return m_count * m_recordSize; }

private:
    unsigned char* const m_memory;
    const std::size_t m_recordSize;
    const std::size_t m_most;
    std::size_t m_count = 0;
};

/// The parts of the workspace.
struct Workspace
{
    explicit Workspace(void* memory) noexcept : at(static_cast<unsigned char*>(memory)) {}
    unsigned char* Take(std::size_t size) noexcept
    {
        unsigned char* const taken = at;
        at += size;
        return taken;
    }
    unsigned char* at;
};
static_assert(kOutputBuffer + kPage + kMostThreads * (kThreadSize + kMemorySize) + kMemorySize +
                  kMostModules * kModuleSize + kMostNotes + sizeof(DumpedThread) <=
              kDumpWorkspace);

class Writer
{
public:
    Writer(int file, const DumpSubject& subject, Workspace workspace) noexcept
        : m_file(file),
          m_subject(subject),
          m_output(file, reinterpret_cast<char*>(workspace.Take(kOutputBuffer))),
          m_page(workspace.Take(kPage)),
          m_notes(workspace.Take(kMostNotes)),
          m_thread(new (workspace.Take(sizeof(DumpedThread))) DumpedThread),
          m_threads(workspace.Take(kMostThreads * kThreadSize), kThreadSize, kMostThreads),
          m_memory(workspace.Take((kMostThreads + 1) * kMemorySize), kMemorySize, kMostThreads + 1),
          m_modules(workspace.Take(kMostModules * kModuleSize), kModuleSize, kMostModules)
    {
    }

    bool Write() noexcept
    {
        const unsigned char reserved[kHeaderSize + kMostStreams * kDirectoryEntrySize] = {};
        m_output.Write(reserved, sizeof reserved);
        WriteThreads();
        WriteList(kThreadList, m_threads);
        WriteList(kMemoryList, m_memory);
        WriteModules();
        WriteList(kModuleList, m_modules);
        WriteException();
        WriteSystemInfo();
        WriteMiscInfo();
        BeginStream(kLinuxMaps);
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
    void WriteList(std::uint32_t type, const Table& table) noexcept
    {
        BeginStream(type);
        m_output.Write(Record<4>().Add(table.Count()));
        m_output.Write(table.Bytes(), table.Size());
        EndStream();
    }

    bool WriteHeader() noexcept
    {
        Record<kHeaderSize> header;
        header.Add(kSignature).Add(kVersion).Add(m_streamCount).Add(static_cast<std::uint32_t>(kHeaderSize));
        header.Zeros(16);
        const bool isWritten = lseek(m_file, 0, SEEK_SET) == 0 &&
                               WriteAllBytes(m_file, header.Bytes(), header.Size()) &&
                               WriteAllBytes(m_file, m_directory.Bytes(), m_directory.Size());
        fdatasync(m_file); // where the file system can
        return isWritten;
    }

    void WriteThreads() noexcept
    {
        const std::size_t count = std::min(m_subject.threads.Count(), kMostThreads);
        const std::uint64_t share =
            std::clamp(kAllStacks / std::max<std::size_t>(count, 1) / kPage * kPage, kShortestStack, kLongestStack);
        std::uint64_t left = kAllStacks;
        for (std::size_t i = 0; i < count; ++i)
        {
            m_subject.threads.Get(i, *m_thread);
            m_thread->hasState = m_thread->hasState && i < kMostStates;
            const std::uint64_t limit = i == 0 ? kLongestStack : std::min(share, left);
            const std::uint32_t written = WriteThread(*m_thread, i == 0, limit);
            left -= std::min<std::uint64_t>(left, written);
        }
    }

    /// Returns how much of the stack was written.
    std::uint32_t WriteThread(const DumpedThread& thread, bool isFirst, std::uint64_t limit) noexcept
    {
        std::uint64_t stack = 0;
        std::uint32_t stackSize = 0;
        std::uint32_t stackPlace = 0;
        std::uint32_t statePlace = 0;
        if (thread.hasState)
        {
            m_output.Align();
            statePlace = m_output.Position();
            m_output.Write(thread.state.bytes, MachineState::kSize);
            std::uint64_t end = 0;
            if (FindStack(thread.state.stackPointer, stack, end))
            {
                stackPlace = m_output.Position();
                stackSize = WriteMemory(stack, std::min(end, stack + limit));
            }
            if (isFirst)
            {
                m_firstState = statePlace;
                WriteCode(thread.state.instruction);
            }
        }
        m_threads.Add(Record<kThreadSize>()
                          .Add(thread.id)
                          .Zeros(20)
                          .Add(stack)
                          .Add(stackSize)
                          .Add(stackPlace)
                          .Add(static_cast<std::uint32_t>(thread.hasState ? MachineState::kSize : 0))
                          .Add(statePlace));
        if (isFirst)
            m_firstThread = thread.id;
        return stackSize;
    }

    bool FindStack(std::uint64_t pointer, std::uint64_t& start, std::uint64_t& end) const noexcept
    {
        std::string_view text = m_subject.maps;
        Mapping mapping;
        while (NextMapping(text, mapping))
        {
            if (!mapping.isWritable || mapping.end <= pointer)
                continue;
            if (mapping.start > pointer && mapping.start - pointer > kOverflowGap)
                return false;
            start = std::max(mapping.start, pointer & ~std::uint64_t{15});
            end = mapping.end;
            return true;
        }
        return false;
    }

    /// The bytes around the instruction of the fault.
    void WriteCode(std::uint64_t instruction) noexcept
    {
        std::string_view text = m_subject.maps;
        Mapping mapping;
        while (NextMapping(text, mapping))
        {
            if (instruction < mapping.start || instruction >= mapping.end || !mapping.isReadable)
                continue;
            const std::uint64_t before = std::min(instruction - mapping.start, kCodeAround);
            WriteMemory(instruction - before, std::min(mapping.end, instruction + kCodeAround));
            return;
        }
    }

    /// Writes memory up to `end` or the first page that cannot be read, and adds it to the list. Returns how much that was.
    std::uint32_t WriteMemory(std::uint64_t start, std::uint64_t end) noexcept
    {
        const std::uint32_t place = m_output.Position();
        std::uint64_t at = start;
        while (at < end)
        {
            const std::size_t count = static_cast<std::size_t>(std::min<std::uint64_t>(kPage - at % kPage, end - at));
            if (!m_subject.memory.Read(at, m_page, count))
                break;
            m_output.Write(m_page, count);
            at += count;
        }
        const auto size = static_cast<std::uint32_t>(at - start);
        if (size != 0)
            m_memory.Add(Record<kMemorySize>().Add(start).Add(size).Add(place));
        return size;
    }

    void WriteModules() noexcept
    {
        std::string_view text = m_subject.maps;
        Mapping mapping;
        Mapping module;
        bool hasCode = false;
        while (NextMapping(text, mapping))
        {
            if (!module.path.empty() && mapping.path == module.path)
            {
                module.end = mapping.end;
                hasCode = hasCode || mapping.isExecutable;
                continue;
            }
            if (mapping.path.empty() || mapping.path[0] != '/') // such as a module's zero-initialized data
                continue;
            if (hasCode)
                WriteModule(module);
            module = mapping;
            hasCode = mapping.isExecutable;
        }
        if (hasCode)
            WriteModule(module);
    }

    void WriteModule(const Mapping& module) noexcept
    {
        if (m_modules.IsFull())
            return;
        unsigned char buildId[kLongestBuildId];
        const std::size_t idSize = FindBuildId(module.start, buildId);
        const std::uint32_t idPlace = m_output.Position();
        if (idSize != 0)
        {
            m_output.Write(Record<4>().Add(kBuildIdRecord));
            m_output.Write(buildId, idSize);
        }
        m_output.Align();
        const std::uint32_t namePlace = WriteName(module.path);
        const auto idRecordSize = static_cast<std::uint32_t>(idSize == 0 ? 0 : idSize + 4);
        m_modules.Add(Record<kModuleSize>()
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
            AddCharacter(name, units, count);
        m_output.Write(Record<4>().Add(static_cast<std::uint32_t>(count * sizeof(char16_t))));
        units[count] = 0;
        m_output.Write(units, (count + 1) * sizeof(char16_t));
        return place;
    }
    static void AddCharacter(std::string_view& name, char16_t* units, std::size_t& count) noexcept
    {
        const auto first = static_cast<unsigned char>(name[0]);
        const std::size_t length = first < 0x80   ? 1
                                   : first < 0xC2 ? 0
                                   : first < 0xE0 ? 2
                                   : first < 0xF0 ? 3
                                   : first < 0xF5 ? 4
                                                  : 0;
        char32_t character = length < 2 ? first : first & (0xFFu >> (length + 1));
        bool isGood = length != 0 && length <= name.size();
        for (std::size_t i = 1; i < length && isGood; ++i)
        {
            const auto next = static_cast<unsigned char>(name[i]);
            isGood = (next & 0xC0) == 0x80;
            character = character << 6 | (next & 0x3F);
        }
        name.remove_prefix(isGood ? length : 1);
        if (!isGood)
            units[count++] = 0xFFFD;
        else if (character < 0x10000)
            units[count++] = static_cast<char16_t>(character);
        else
        {
            units[count++] = static_cast<char16_t>(0xD800 + ((character - 0x10000) >> 10));
            units[count++] = static_cast<char16_t>(0xDC00 + (character & 0x3FF));
        }
    }

    /// Reads the build identifier from a loaded module's notes. Returns its size; 0 when there is none.
    std::size_t FindBuildId(std::uint64_t base, unsigned char* buildId) noexcept
    {
        ElfW(Ehdr) header;
        if (!m_subject.memory.Read(base, &header, sizeof header) || std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 ||
            header.e_phentsize != sizeof(ElfW(Phdr)))
            return 0;
        std::uint64_t firstAddress = 0;
        bool hasFirst = false;
        for (unsigned i = 0; i < header.e_phnum; ++i)
        {
            ElfW(Phdr) part;
            if (!m_subject.memory.Read(base + header.e_phoff + i * sizeof part, &part, sizeof part))
                return 0;
            if (part.p_type == PT_LOAD && !hasFirst)
            {
                firstAddress = part.p_vaddr - part.p_offset;
                hasFirst = true;
            }
        }
        for (unsigned i = 0; i < header.e_phnum; ++i)
        {
            ElfW(Phdr) part;
            if (!m_subject.memory.Read(base + header.e_phoff + i * sizeof part, &part, sizeof part))
                return 0;
            if (part.p_type != PT_NOTE)
                continue;
            const std::size_t size = std::min<std::size_t>(part.p_memsz, kMostNotes);
            if (!m_subject.memory.Read(base + part.p_vaddr - firstAddress, m_notes, size))
                continue;
            if (const std::size_t idSize = BuildIdOfNotes(size, buildId))
                return idSize;
        }
        return 0;
    }
    std::size_t BuildIdOfNotes(std::size_t size, unsigned char* buildId) const noexcept
    {
        constexpr std::size_t kNoteHeader = 12;
        const auto padded = [](std::size_t length) { return (length + 3) / 4 * 4; };
        std::size_t at = 0;
        while (at + kNoteHeader <= size)
        {
            std::uint32_t nameSize, bodySize, type;
            std::memcpy(&nameSize, m_notes + at, 4);
            std::memcpy(&bodySize, m_notes + at + 4, 4);
            std::memcpy(&type, m_notes + at + 8, 4);
            const std::size_t body = at + kNoteHeader + padded(nameSize);
            if (body > size || bodySize > size - body)
                return 0;
            if (type == NT_GNU_BUILD_ID && nameSize == 4 && std::memcmp(m_notes + at + kNoteHeader, "GNU", 4) == 0)
            {
                const std::size_t count = std::min<std::size_t>(bodySize, kLongestBuildId);
                std::memcpy(buildId, m_notes + body, count);
                return count;
            }
            at = body + padded(bodySize);
        }
        return 0;
    }

    void WriteException() noexcept
    {
        BeginStream(kExceptionStream);
        m_output.Write(Record<168>()
                           .Add(m_firstThread)
                           .Zeros(4)
                           .Add(m_subject.signal)
                           .Add(m_subject.signalCode)
                           .Zeros(8)
                           .Add(m_subject.faultAddress)
                           .Zeros(8 + 15 * 8)
                           .Add(static_cast<std::uint32_t>(m_firstState != 0 ? MachineState::kSize : 0))
                           .Add(m_firstState));
        EndStream();
    }

    void WriteSystemInfo() noexcept
    {
        m_output.Align();
        const std::uint32_t version = WriteName({});
        BeginStream(kSystemInfo);
        m_output.Write(
            Record<56>().Add(kProcessorX64).Zeros(4 + 2 + 12).Add(kPlatformLinux).Add(version).Zeros(4 + 24));
        EndStream();
    }

    void WriteMiscInfo() noexcept
    {
        constexpr std::uint32_t kSize = 24;
        constexpr std::uint32_t kHasProcessId = 1;
        BeginStream(kMiscInfo);
        m_output.Write(Record<kSize>().Add(kSize).Add(kHasProcessId).Add(m_subject.processId).Zeros(12));
        EndStream();
    }

    const int m_file;
    const DumpSubject& m_subject;
    Output m_output;
    unsigned char* const m_page;
    unsigned char* const m_notes;
    DumpedThread* const m_thread;
    Table m_threads;
    Table m_memory;
    Table m_modules;
    Record<kMostStreams * kDirectoryEntrySize> m_directory;
    std::uint32_t m_streamCount = 0;
    std::uint32_t m_streamStart = 0;
    std::uint32_t m_firstThread = 0;
    std::uint32_t m_firstState = 0;
};
} // namespace

bool WriteMinidump(int file, const DumpSubject& subject, void* workspace) noexcept
{
    return Writer(file, subject, Workspace(workspace)).Write();
}
} // namespace tev::platform
