#include "crash/XMinidump.h"

#include "base/LittleEndian.h"
#include "files/CXFile.h"
#include "objects/CXException.h"
#include "platform/ModuleFile.h"
#include "platform/PathNames.h"
#include "text/TextEncoding.h"

#include <algorithm>
#include <map>
#include <string>

namespace
{
using tev::platform::FrameState;
using tev::platform::ModuleFile;
using Number = unsigned __int64;

constexpr unsigned kSignature = 0x504D444D; // 'MDMP'
constexpr unsigned kVersion = 0xA793;
constexpr unsigned kBuildIdRecord = 0x4270454C;
constexpr unsigned kNoSignal = 0xFFFFFFFF;
constexpr unsigned kThreadList = 3;
constexpr unsigned kModuleList = 4;
constexpr unsigned kMemoryList = 5;
constexpr unsigned kException = 6;
constexpr unsigned kMiscInfo = 15;
constexpr std::size_t kThreadSize = 48;
constexpr std::size_t kModuleSize = 108;
constexpr std::size_t kMemorySize = 16;
constexpr std::size_t kContextSize = 1232;
constexpr std::size_t kFirstRegister = 120;
constexpr std::size_t kLongestName = 32768;
constexpr std::size_t kLongestBuildId = 64;
constexpr std::size_t kMostFrames = 256;
constexpr Number kLargestFile = Number{1} << 30;

/// The index in a thread's registers of each register of a frame.
constexpr std::size_t kPlaces[FrameState::kRegisters] = {0, 2, 1, 3, 6, 7, 5, 4, 8, 9, 10, 11, 12, 13, 14, 15, 16};
} // namespace

/// Parses the bytes of a dump.
struct XMinidump::Reader
{
    explicit Reader(XMinidump& target) : dump(target), bytes(target.m_bytes) {}

    template <class T>
    T Get(std::size_t offset) const
    {
        return Has(offset, sizeof(T)) ? tev::LoadLittleEndian<T>(bytes.data() + offset) : T{};
    }
    bool Has(std::size_t offset, std::size_t size) const
    {
        return offset <= bytes.size() && size <= bytes.size() - offset;
    }

    bool ReadAll()
    {
        constexpr std::size_t kEntrySize = 12;
        constexpr unsigned kMostStreams = 256;
        if (Get<unsigned>(0) != kSignature || (Get<unsigned>(4) & 0xFFFF) != kVersion)
            return false;
        const unsigned count = std::min(Get<unsigned>(8), kMostStreams);
        const std::size_t directory = Get<unsigned>(12);
        for (unsigned i = 0; i < count; ++i)
        {
            const std::size_t entry = directory + i * kEntrySize;
            const std::size_t place = Get<unsigned>(entry + 8);
            if (Has(entry, kEntrySize))
                ReadStream(Get<unsigned>(entry), place);
        }
        FindFaultThread();
        return true;
    }

    void ReadStream(unsigned type, std::size_t place)
    {
        if (type == kThreadList)
            ReadList(place, kThreadSize, dump.m_threads, &Reader::ReadThread);
        else if (type == kModuleList)
            ReadList(place, kModuleSize, dump.m_modules, &Reader::ReadModule);
        else if (type == kMemoryList)
            ReadList(place, kMemorySize, dump.m_memory, &Reader::ReadMemory);
        else if (type == kException)
            ReadException(place);
        else if (type == kMiscInfo)
            dump.m_processId = Get<unsigned>(place + 8);
    }

    /// A count followed by records; of a cut list, the records that are complete.
    template <class T>
    void ReadList(std::size_t place, std::size_t recordSize, std::vector<T>& list,
                  T (Reader::*read)(std::size_t) const) const
    {
        list.clear();
        const std::size_t first = place + sizeof(unsigned);
        if (!Has(place, sizeof(unsigned)))
            return;
        const std::size_t count = std::min<std::size_t>(Get<unsigned>(place), (bytes.size() - first) / recordSize);
        list.reserve(count);
        for (std::size_t i = 0; i < count; ++i)
            list.push_back((this->*read)(first + i * recordSize));
    }

    XMinidumpThread ReadThread(std::size_t at) const
    {
        XMinidumpThread thread;
        thread.m_id = Get<unsigned>(at);
        ReadRegisters(Get<unsigned>(at + 40), Get<unsigned>(at + 44), thread);
        return thread;
    }
    void ReadRegisters(std::size_t size, std::size_t place, XMinidumpThread& thread) const
    {
        thread.m_hasRegisters = size >= kContextSize && Has(place, kContextSize);
        if (!thread.m_hasRegisters)
            return;
        for (std::size_t i = 0; i < thread.m_registers.size(); ++i)
            thread.m_registers[i] = Get<Number>(place + kFirstRegister + i * sizeof(Number));
    }

    XMinidumpModule ReadModule(std::size_t at) const
    {
        XMinidumpModule module;
        module.m_base = Get<Number>(at);
        module.m_size = Get<unsigned>(at + 8);
        module.m_path = ReadText(Get<unsigned>(at + 20));
        const std::size_t size = Get<unsigned>(at + 76);
        const std::size_t place = Get<unsigned>(at + 80);
        if (size > sizeof(unsigned) && size <= sizeof(unsigned) + kLongestBuildId && Has(place, size) &&
            Get<unsigned>(place) == kBuildIdRecord)
        {
            const auto id = bytes.begin() + static_cast<std::ptrdiff_t>(place + sizeof(unsigned));
            module.m_buildId.assign(id, id + static_cast<std::ptrdiff_t>(size - sizeof(unsigned)));
        }
        return module;
    }
    CXTString<wchar_t> ReadText(std::size_t at) const
    {
        const std::size_t size = Get<unsigned>(at);
        CXTString<wchar_t> text;
        if (!Has(at, sizeof(unsigned)) || size > kLongestName || !Has(at + sizeof(unsigned), size) ||
            !XDecodeText(bytes.data() + at + sizeof(unsigned), size, xEncodingUtf16, text))
            return {};
        return text;
    }

    Memory ReadMemory(std::size_t at) const
    {
        const std::size_t size = Get<unsigned>(at + 8);
        const std::size_t place = Get<unsigned>(at + 12);
        return {Get<Number>(at), place, Has(place, size) ? size : 0};
    }

    void ReadException(std::size_t place)
    {
        constexpr std::size_t kSize = 168;
        if (!Has(place, kSize))
            return;
        faultThread = Get<unsigned>(place);
        const auto signal = Get<unsigned>(place + 8);
        dump.m_signal = signal == kNoSignal ? 0 : signal;
        dump.m_signalCode = Get<unsigned>(place + 12);
        dump.m_faultAddress = Get<Number>(place + 24);
        ReadRegisters(Get<unsigned>(place + 160), Get<unsigned>(place + 164), faultState);
    }

    /// The registers at the fault replace those from when the dump was written.
    void FindFaultThread() const
    {
        const auto found = std::find_if(dump.m_threads.begin(), dump.m_threads.end(),
                                        [this](const XMinidumpThread& thread) { return thread.m_id == faultThread; });
        if (faultThread == 0 || found == dump.m_threads.end())
            return;
        dump.m_faultThread = static_cast<int>(found - dump.m_threads.begin());
        if (!faultState.m_hasRegisters)
            return;
        found->m_hasRegisters = true;
        found->m_registers = faultState.m_registers;
    }

    XMinidump& dump;
    const std::vector<unsigned char>& bytes;
    unsigned faultThread = 0;
    XMinidumpThread faultState;
};

XMinidump::XMinidump() = default;
XMinidump::~XMinidump() = default;

bool XMinidump::Parse(std::vector<unsigned char> bytes)
{
    m_processId = m_signal = m_signalCode = 0;
    m_faultAddress = 0;
    m_faultThread = -1;
    m_threads.clear();
    m_modules.clear();
    m_memory.clear();
    m_bytes = std::move(bytes);
    if (Reader(*this).ReadAll())
        return true;
    m_bytes.clear();
    return false;
}

bool XMinidump::Load(const wchar_t* path)
{
    CXFile file(false);
    std::vector<unsigned char> bytes;
    if (file.Open(path, CXFile::modeRead | CXFile::shareDenyNone) && file.GetLength() <= kLargestFile)
    {
        bytes.resize(static_cast<std::size_t>(file.GetLength()));
        bytes.resize(file.Read(bytes.data(), static_cast<unsigned>(bytes.size())));
    }
    return Parse(std::move(bytes));
}

int XMinidump::FindModule(Number address) const noexcept
{
    for (std::size_t i = 0; i < m_modules.size(); ++i)
    {
        if (address >= m_modules[i].m_base && address - m_modules[i].m_base < m_modules[i].m_size)
            return static_cast<int>(i);
    }
    return -1;
}

bool XMinidump::ReadWord(Number address, Number& value) const noexcept
{
    for (const Memory& memory : m_memory)
    {
        if (address < memory.m_start || memory.m_size < sizeof value ||
            address - memory.m_start > memory.m_size - sizeof value)
            continue;
        value = tev::LoadLittleEndian<Number>(m_bytes.data() + memory.m_offset +
                                              static_cast<std::size_t>(address - memory.m_start));
        return true;
    }
    return false;
}

std::vector<XMinidumpFrame> XMinidump::GetStack(int thread) const
{
    std::vector<XMinidumpFrame> frames;
    if (thread < 0 || static_cast<std::size_t>(thread) >= m_threads.size() ||
        !m_threads[static_cast<std::size_t>(thread)].m_hasRegisters)
        return frames;
    FrameState state;
    for (std::size_t i = 0; i < FrameState::kRegisters; ++i)
        state.registers[i] = m_threads[static_cast<std::size_t>(thread)].m_registers[kPlaces[i]];
    std::map<int, std::unique_ptr<ModuleFile>> files;
    const auto readWord = [this](Number address, std::uint64_t& value) {
        Number word = 0;
        const bool isKnown = ReadWord(address, word);
        value = word;
        return isKnown;
    };
    while (frames.size() < kMostFrames)
    {
        XMinidumpFrame frame;
        frame.m_instruction = state.registers[FrameState::kInstruction];
        // The return address of a call that never returns may lie behind the calling function.
        const Number inside = frame.m_instruction - (frames.empty() ? 0 : 1);
        frame.m_module = FindModule(inside);
        frame.m_offset = frame.m_instruction;
        if (frame.m_module < 0)
        {
            frames.push_back(frame);
            break;
        }
        const XMinidumpModule& module = m_modules[static_cast<std::size_t>(frame.m_module)];
        auto file = files.find(frame.m_module);
        if (file == files.end())
        {
            std::string path;
            const bool isPath = tev::platform::WidePathToSystem(module.m_path, path);
            file = files.emplace(frame.m_module, isPath ? ModuleFile::Open(path, module.m_buildId) : nullptr).first;
        }
        frame.m_offset = frame.m_instruction - module.m_base;
        std::string name;
        std::uint64_t offset = 0;
        if (file->second != nullptr && file->second->FindFunction(inside - module.m_base, name, offset))
        {
            CXTString<wchar_t> text;
            if (XDecodeText(name.data(), name.size(), xEncodingUtf8, text))
                frame.m_function = text;
            frame.m_offset = offset + (frame.m_instruction - inside);
        }
        frames.push_back(frame);
        const Number stackPointer = state.registers[FrameState::kStackPointer];
        if (file->second == nullptr || !file->second->LeaveFrame(inside - module.m_base, state, readWord) ||
            state.registers[FrameState::kStackPointer] <= stackPointer)
            break;
    }
    return frames;
}
