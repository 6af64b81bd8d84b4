// The parts of a dump, out of its bytes.

#include "base/LittleEndian.h"
#include "crash/Processor.h"
#include "crash/UntrustedBytes.h"
#include "crash/XMinidump.h"
#include "objects/FailureNote.h"
#include "platform/Cancellation.h"
#include "platform/InputFile.h"
#include "platform/MinidumpFormat.h"
#include "platform/SystemErrors.h"
#include "text/TextEncoding.h"

#include <algorithm>
#include <cerrno>
#include <string>

namespace
{
using Number = unsigned __int64;
namespace md = tev::minidump;

// However the numbers in a file are chosen, it takes no more memory than this many records and bytes of names do.
constexpr unsigned kMostRecords = 65536;
constexpr unsigned kLongestName = 32768;
constexpr unsigned kMostNameBytes = 64u << 20;

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
    explicit Reader(XMinidump& target) : dump(target), bytes(*target.m_bytes) {}

    static bool Read(XMinidump& dump, std::unique_ptr<tev::UntrustedBytes> bytes)
    {
        Clear(dump);
        dump.m_bytes = std::move(bytes);
        return Reader(dump).ReadAll();
    }

    static void Clear(XMinidump& dump)
    {
        dump.m_parts = dump.m_cutParts = 0;
        dump.m_time = dump.m_platform = dump.m_processorCount = 0;
        dump.m_processor = md::kUnknownProcessor;
        dump.m_systemText.Empty();
        dump.m_processId = dump.m_signal = dump.m_signalCode = 0;
        dump.m_faultAddress = 0;
        dump.m_faultThread = -1;
        dump.m_threads.clear();
        dump.m_modules.clear();
        dump.m_memory.clear();
        dump.m_bytes.reset();
    }

    template <class T>
    T Get(Number offset) const
    {
        unsigned char number[sizeof(T)];
        return bytes.Read(offset, number) ? tev::LoadLittleEndian<T>(number) : T{};
    }
    bool Has(Number offset, Number size) const { return bytes.Has(offset, size); }

    bool ReadAll()
    {
        constexpr unsigned kMostStreams = 256;
        if (!Has(0, md::kHeaderSize) || Get<unsigned>(0) != md::kSignature ||
            (Get<unsigned>(4) & 0xFFFF) != md::kVersion)
            return false;
        dump.m_time = Get<unsigned>(20);
        const unsigned count = std::min(Get<unsigned>(8), kMostStreams);
        const Number directory = Get<unsigned>(12);
        // The registers of threads are read by the kind of processor.
        for (const bool isSystem : {true, false})
        {
            for (unsigned i = 0; i < count; ++i)
            {
                const Number entry = directory + i * md::kDirectoryEntrySize;
                if (Has(entry, md::kDirectoryEntrySize) && (Get<unsigned>(entry) == md::kSystemInfo) == isSystem)
                    ReadStream(Get<unsigned>(entry), Get<unsigned>(entry + 8), Get<unsigned>(entry + 4));
            }
        }
        FindFaultThread();
        return true;
    }

    void ReadStream(unsigned type, Number place, Number size)
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

    void ReadSystem(Number place)
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
    void ReadList(XMinidumpPart part, Number place, Number size, Number recordSize, std::vector<T>& list,
                  T (Reader::*read)(Number))
    {
        list.clear();
        const Number first = place + sizeof(unsigned);
        if (!Has(place, sizeof(unsigned)) || size < sizeof(unsigned))
            return;
        dump.m_parts |= BitOf(part);
        const unsigned expected = Get<unsigned>(place);
        const Number room = std::min(bytes.Size() - first, size - sizeof(unsigned)) / recordSize;
        const auto count = static_cast<unsigned>(std::min<Number>(std::min(expected, kMostRecords), room));
        if (count != expected)
            dump.m_cutParts |= BitOf(part);
        list.reserve(count);
        for (unsigned i = 0; i < count; ++i)
            list.push_back((this->*read)(first + i * recordSize));
    }

    XMinidumpThread ReadThread(Number at)
    {
        XMinidumpThread thread;
        thread.m_id = Get<unsigned>(at);
        ReadRegisters(Get<unsigned>(at + 40), Get<unsigned>(at + 44), thread);
        return thread;
    }
    void ReadRegisters(Number size, Number place, XMinidumpThread& thread) const
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

    XMinidumpModule ReadModule(Number at)
    {
        XMinidumpModule module;
        module.m_base = Get<Number>(at);
        module.m_size = Get<unsigned>(at + 8);
        module.m_path = ReadText(Get<unsigned>(at + 20));
        const unsigned size = Get<unsigned>(at + 76);
        const Number place = Get<unsigned>(at + 80);
        if (size > sizeof(unsigned) && size <= sizeof(unsigned) + md::kLongestBuildId && Has(place, size) &&
            Get<unsigned>(place) == md::kBuildIdRecord)
        {
            module.m_buildId.resize(size - sizeof(unsigned));
            if (!bytes.Read(place + sizeof(unsigned), module.m_buildId.data(), module.m_buildId.size()))
                module.m_buildId.clear();
        }
        return module;
    }
    CXTString<wchar_t> ReadText(Number at)
    {
        const unsigned size = Get<unsigned>(at);
        CXTString<wchar_t> text;
        if (size > kLongestName || size > nameBytesLeft || !Has(at + sizeof(unsigned), size))
            return text;
        nameBytesLeft -= size;
        std::string units(size, '\0');
        if (!bytes.Read(at + sizeof(unsigned), units.data(), size) ||
            !XDecodeText(units.data(), size, xEncodingUtf16, text))
            return {};
        return text;
    }

    Memory ReadMemory(Number at)
    {
        const unsigned size = Get<unsigned>(at + 8);
        const unsigned place = Get<unsigned>(at + 12);
        return {Get<Number>(at), place, Has(place, size) ? size : 0};
    }

    void ReadException(Number place)
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
    const tev::UntrustedBytes& bytes;
    unsigned nameBytesLeft = kMostNameBytes;
    const tev::Processor* processor = nullptr;
    unsigned faultThread = 0;
    XMinidumpThread faultState;
};

bool XMinidump::Parse(std::vector<unsigned char> bytes)
{
    if (Reader::Read(*this, std::make_unique<tev::UntrustedBytes>(std::move(bytes))))
        return true;
    Reader::Clear(*this);
    return tev::NoteBadData("XMinidump::Parse");
}

bool XMinidump::Load(const wchar_t* path)
{
    constexpr const char* kOperation = "XMinidump::Load";
    const tev::platform::WithoutCancellation whole;
    Reader::Clear(*this);
    const bool isLoaded = tev::ResultOrNote(kOperation, path, false, [&] {
        std::shared_ptr<const tev::platform::InputFile> file = tev::platform::InputFile::Open(path);
        if (file == nullptr)
            return errno == EISDIR || errno == EINVAL ? tev::NoteBadData(kOperation, path)
                                                      : tev::NoteLastError(kOperation, path);
        bool isDump = false;
        {
            const tev::FailuresUnnoted unnoted; // here it is the file that is said
            isDump = Reader::Read(*this, std::make_unique<tev::UntrustedBytes>(std::move(file)));
        }
        const int error = m_bytes->Error();
        if (error != 0)
            return tev::NoteSystemError(kOperation, tev::platform::SystemErrorFromErrno(error), path);
        return isDump || tev::NoteBadData(kOperation, path);
    });
    if (!isLoaded)
        Reader::Clear(*this);
    return isLoaded;
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
