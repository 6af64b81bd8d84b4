// The parts of a dump, out of its bytes.

#include "base/LittleEndian.h"
#include "crash/Processor.h"
#include "crash/XMinidump.h"
#include "files/CXFile.h"
#include "objects/FailureNote.h"
#include "platform/Cancellation.h"
#include "platform/FileInformation.h"
#include "platform/MinidumpFormat.h"
#include "text/TextEncoding.h"

#include <algorithm>

namespace
{
using Number = unsigned __int64;
namespace md = tev::minidump;

constexpr std::size_t kLongestName = 32768;
constexpr Number kLargestFile = Number{1} << 30;

struct NumberedName
{
    unsigned number;
    const wchar_t* name;
};
constexpr NumberedName kPlatforms[] = {{md::kWindows, L"Windows"}, {md::kMacOs, L"macOS"},
                                       {md::kIos, L"iOS"},         {md::kLinux, L"Linux"},
                                       {md::kSolaris, L"Solaris"}, {md::kAndroid, L"Android"}};
constexpr NumberedName kProcessors[] = {
    {md::kX86, L"x86"}, {md::kArm, L"ARM"}, {md::kX64, L"x86-64"}, {md::kArm64, L"ARM64"}};

template <std::size_t COUNT>
CXTString<wchar_t> NameOf(unsigned number, const NumberedName (&names)[COUNT], const wchar_t* kind)
{
    for (const NumberedName& candidate : names)
    {
        if (candidate.number == number)
            return candidate.name;
    }
    CXTString<wchar_t> text;
    text.Format(L"%s 0x%X", kind, number);
    return text;
}
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
        constexpr unsigned kMostStreams = 256;
        if (!Has(0, md::kHeaderSize) || Get<unsigned>(0) != md::kSignature ||
            (Get<unsigned>(4) & 0xFFFF) != md::kVersion)
            return false;
        dump.m_time = Get<unsigned>(20);
        const unsigned count = std::min(Get<unsigned>(8), kMostStreams);
        const std::size_t directory = Get<unsigned>(12);
        // The registers of threads are read by the kind of processor.
        for (const bool isSystem : {true, false})
        {
            for (unsigned i = 0; i < count; ++i)
            {
                const std::size_t entry = directory + i * md::kDirectoryEntrySize;
                if (Has(entry, md::kDirectoryEntrySize) && (Get<unsigned>(entry) == md::kSystemInfo) == isSystem)
                    ReadStream(Get<unsigned>(entry), Get<unsigned>(entry + 8), Get<unsigned>(entry + 4));
            }
        }
        FindFaultThread();
        return true;
    }

    void ReadStream(unsigned type, std::size_t place, std::size_t size)
    {
        if (type == md::kSystemInfo)
            ReadSystem(place);
        else if (type == md::kThreadList)
            ReadList(XMinidumpPart::kThreads, place, size, md::kThreadSize, dump.m_threads, &Reader::ReadThread);
        else if (type == md::kModuleList)
            ReadList(XMinidumpPart::kModules, place, size, md::kModuleSize, dump.m_modules, &Reader::ReadModule);
        else if (type == md::kMemoryList)
            ReadList(XMinidumpPart::kMemory, place, size, md::kMemorySize, dump.m_memory, &Reader::ReadMemory);
        else if (type == md::kException)
            ReadException(place);
        else if (type == md::kMiscInfo && Has(place, 12) && (Get<unsigned>(place + 4) & md::kHasProcessId) != 0)
        {
            dump.m_parts |= BitOf(XMinidumpPart::kProcess);
            dump.m_processId = Get<unsigned>(place + 8);
        }
    }

    void ReadSystem(std::size_t place)
    {
        if (!Has(place, md::kSystemInfoSize))
            return;
        dump.m_parts |= BitOf(XMinidumpPart::kSystem);
        dump.m_processor = Get<unsigned short>(place);
        dump.m_processorCount = Get<unsigned char>(place + 6);
        dump.m_platform = Get<unsigned>(place + 20);
        dump.m_systemText = ReadText(Get<unsigned>(place + 24));
        processor = tev::FindProcessor(static_cast<std::uint16_t>(dump.m_processor));
    }

    /// A count followed by records; of a cut list, the records that are complete.
    template <class T>
    void ReadList(XMinidumpPart part, std::size_t place, std::size_t size, std::size_t recordSize, std::vector<T>& list,
                  T (Reader::*read)(std::size_t) const) const
    {
        list.clear();
        const std::size_t first = place + sizeof(unsigned);
        if (!Has(place, sizeof(unsigned)) || size < sizeof(unsigned))
            return;
        dump.m_parts |= BitOf(part);
        const std::size_t expected = Get<unsigned>(place);
        const std::size_t count =
            std::min(expected, std::min(bytes.size() - first, size - sizeof(unsigned)) / recordSize);
        if (count != expected)
            dump.m_cutParts |= BitOf(part);
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
        if (processor == nullptr || size < processor->recordSize || !Has(place, processor->recordSize))
            return;
        thread.m_hasRegisters = true;
        thread.m_registers.resize(processor->registerCount);
        for (std::size_t i = 0; i < thread.m_registers.size(); ++i)
            thread.m_registers[i] = Get<Number>(place + processor->firstRegister + i * sizeof(Number));
        thread.m_stackPointer = thread.m_registers[processor->recordIndex[processor->stackPointer]];
        thread.m_instruction = thread.m_registers[processor->recordIndex[processor->instruction]];
    }

    XMinidumpModule ReadModule(std::size_t at) const
    {
        XMinidumpModule module;
        module.m_base = Get<Number>(at);
        module.m_size = Get<unsigned>(at + 8);
        module.m_path = ReadText(Get<unsigned>(at + 20));
        const std::size_t size = Get<unsigned>(at + 76);
        const std::size_t place = Get<unsigned>(at + 80);
        if (size > sizeof(unsigned) && size <= sizeof(unsigned) + md::kLongestBuildId && Has(place, size) &&
            Get<unsigned>(place) == md::kBuildIdRecord)
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
        if (!Has(place, md::kExceptionSize))
            return;
        dump.m_parts |= BitOf(XMinidumpPart::kException);
        faultThread = Get<unsigned>(place);
        const auto signal = Get<unsigned>(place + 8);
        dump.m_signal = signal == md::kNoSignal ? 0 : signal;
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
        *found = faultState;
        found->m_id = faultThread;
    }

    XMinidump& dump;
    const std::vector<unsigned char>& bytes;
    const tev::Processor* processor = nullptr;
    unsigned faultThread = 0;
    XMinidumpThread faultState;
};

bool XMinidump::Parse(std::vector<unsigned char> bytes)
{
    m_parts = m_cutParts = 0;
    m_time = m_platform = m_processorCount = 0;
    m_processor = md::kUnknownProcessor;
    m_systemText.Empty();
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
    return tev::NoteBadData("XMinidump::Parse");
}

bool XMinidump::Load(const wchar_t* path)
{
    std::vector<unsigned char> bytes;
    tev::platform::FileInformation information;
    constexpr const char* kOperation = "XMinidump::Load";
    const tev::platform::WithoutCancellation whole;
    bool isRead = false;
    bool isDump = false;
    if (!tev::platform::GetFileInformation(path, information))
        tev::NoteLastError(kOperation, path);
    else if (information.kind == tev::platform::FileKind::File)
    {
        isRead = tev::ResultOrNote(kOperation, path, false, [&] {
            CXFile file(path, CXFile::modeRead | CXFile::shareDenyNone);
            if (file.GetLength() > kLargestFile)
                return tev::NoteBadData(kOperation, path);
            bytes.resize(static_cast<std::size_t>(file.GetLength()));
            bytes.resize(file.Read(bytes.data(), static_cast<unsigned>(bytes.size())));
            return true;
        });
    }
    else
        tev::NoteBadData(kOperation, path);
    {
        const tev::FailuresUnnoted unnoted; // here it is the file that is said
        isDump = Parse(std::move(bytes));
    }
    return isDump || (isRead && tev::NoteBadData(kOperation, path));
}

bool XMinidump::IsLinux() const noexcept
{
    return m_platform == md::kLinux;
}

CXTString<wchar_t> XMinidump::GetSystemName() const
{
    if (!Has(XMinidumpPart::kSystem))
        return {};
    return NameOf(m_platform, kPlatforms, L"system") + L" " + NameOf(m_processor, kProcessors, L"processor");
}
