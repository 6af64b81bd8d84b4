#pragma once

#include "text/CXTString.h"
#include "text/Language.h"

#include <memory>
#include <vector>

namespace tev
{
class UntrustedBytes;
}

/// A thread at the time of the dump.
struct XMinidumpThread
{
    unsigned int m_id = 0;
    bool m_hasRegisters = false;
    /// On x86-64: rax, rcx, rdx, rbx, rsp, rbp, rsi, rdi, r8 to r15, rip.
    std::vector<unsigned __int64> m_registers;
    unsigned __int64 m_stackPointer = 0;
    unsigned __int64 m_instruction = 0;

    unsigned __int64 GetStackPointer() const noexcept { return m_stackPointer; }
    unsigned __int64 GetInstruction() const noexcept { return m_instruction; }
};

/// A program or library that was loaded.
struct XMinidumpModule
{
    unsigned __int64 m_base = 0;
    unsigned int m_size = 0; ///< in bytes
    CXTString<wchar_t> m_path;
    std::vector<unsigned char> m_buildId; ///< empty when it has none
};

/// A call on a stack.
struct XMinidumpFrame
{
    unsigned __int64 m_instruction = 0; ///< of a caller: the return address
    int m_module = -1;                  ///< the module's index, -1 for none
    CXTString<wchar_t> m_function;      ///< empty when unknown
    unsigned __int64 m_offset = 0;      ///< in the function; in the module when the function is unknown
};

/// Why a stack has no more frames.
enum class XMinidumpStackEnd
{
    kComplete,    ///< the last frame is the outermost
    kNoRegisters, ///< the dump has no registers of the thread, or of its kind of processor
    kNoMemory,    ///< the dump lacks memory of the stack
    kNoModule,    ///< the last frame's code is in no module
    kNoFile,      ///< the last frame's module is not on this machine, or is another version
    kNoRules,     ///< the last frame's module does not say how to unwind it
    kTooDeep      ///< there are more than 1024 frames
};

/// What it means, in the language of message texts or the given one: a sentence, empty for a value that is none. Safe from
/// several threads at once.
TEVTOOLS_API CXTString<wchar_t> XGetText(XMinidumpStackEnd end, XLanguage language = XGetLanguage());

/// The parts of a dump, each of which may be missing.
enum class XMinidumpPart
{
    kSystem,
    kProcess,
    kException,
    kThreads,
    kModules,
    kMemory
};

/// Reads a minidump: the signal, threads, modules, and for x86-64 Linux the stacks. The file is untrusted input; damaged
/// parts count as missing, and of a list what follows 65,536 records. XLastFailure() says why a dump could not be loaded.
/// One thread at a time.
class TEVTOOLS_API XMinidump
{
public:
    XMinidump();
    XMinidump(const XMinidump&) = delete;
    XMinidump& operator=(const XMinidump&) = delete;
    ~XMinidump();

    /// Parses the bytes of a dump. False, and the object is empty, when they are no dump.
    [[nodiscard]] bool Parse(std::vector<unsigned char> bytes);
    /// Reads a file of any size, of which it keeps little in memory: it stays open for the stacks until the object ends or
    /// reads another dump. False, and the object is empty, when it cannot be read or is no dump.
    [[nodiscard]] bool Load(const wchar_t* path);
    template <class Path, tev::IfPathArgument<Path> = 0>
    [[nodiscard]] bool Load(const Path& path)
    {
        return Load(CXTString<wchar_t>(path).GetConstBuffer());
    }

    bool Has(XMinidumpPart part) const noexcept { return (m_parts & BitOf(part)) != 0; }
    /// Whether records of a list are missing that the dump should have.
    bool IsCut(XMinidumpPart part) const noexcept { return (m_cutParts & BitOf(part)) != 0; }

    /// In seconds since 1970; 0 when unknown.
    unsigned int GetTime() const noexcept { return m_time; }
    /// The number of the system that the dump is of: 0x8201 for Linux, 2 for Windows; 0 when unknown.
    unsigned int GetPlatform() const noexcept { return m_platform; }
    bool IsLinux() const noexcept;
    /// The number of the kind of processor: 9 for x86-64; 0xFFFF when unknown.
    unsigned int GetProcessor() const noexcept { return m_processor; }
    unsigned int GetProcessorCount() const noexcept { return m_processorCount; }
    /// The system's name and version as it reports them.
    const CXTString<wchar_t>& GetSystemText() const noexcept { return m_systemText; }
    /// The names of the system and of the kind of processor, such as "Linux x86-64".
    CXTString<wchar_t> GetSystemName() const;

    unsigned int GetProcessId() const noexcept { return m_processId; }
    bool HasSignal() const noexcept { return m_signal != 0; }
    /// The system's number, on Windows that of an exception; 0 when the dump was made without one.
    unsigned int GetSignal() const noexcept { return m_signal; }
    unsigned int GetSignalCode() const noexcept { return m_signalCode; }
    unsigned __int64 GetFaultAddress() const noexcept { return m_faultAddress; }
    /// The index of the thread that crashed, or made the dump; -1 when unknown.
    int GetFaultThread() const noexcept { return m_faultThread; }
    const std::vector<XMinidumpThread>& GetThreads() const noexcept { return m_threads; }
    const std::vector<XMinidumpModule>& GetModules() const noexcept { return m_modules; }

    /// Walks up a thread's stack with the frame tables of the modules' files on this machine, where their build identifiers
    /// match; ends where a frame is unknown. Reads these files. An invalid index gives no frames.
    std::vector<XMinidumpFrame> GetStack(int thread) const;
    /// As above; `end` is set to why the last frame is the last.
    std::vector<XMinidumpFrame> GetStack(int thread, XMinidumpStackEnd& end) const;
    /// Describes a thread and its stack for people: a line for the thread, one for each call, and one for the
    /// reason where the stack is incomplete. Names are as the dump has them, control characters included.
    std::vector<CXTString<wchar_t>> DescribeThread(int thread) const;

private:
    struct Reader;
    struct Walker;
    struct Memory
    {
        unsigned __int64 m_start;
        unsigned int m_offset; ///< in the file
        unsigned int m_size;
    };

    static unsigned int BitOf(XMinidumpPart part) noexcept { return 1u << static_cast<unsigned int>(part); }
    int FindModule(unsigned __int64 address) const noexcept;
    bool ReadWord(unsigned __int64 address, unsigned __int64& value) const noexcept;

    std::unique_ptr<tev::UntrustedBytes> m_bytes;
    unsigned int m_parts = 0;
    unsigned int m_cutParts = 0;
    unsigned int m_time = 0;
    unsigned int m_platform = 0;
    unsigned int m_processor = 0xFFFF;
    unsigned int m_processorCount = 0;
    CXTString<wchar_t> m_systemText;
    unsigned int m_processId = 0;
    unsigned int m_signal = 0;
    unsigned int m_signalCode = 0;
    unsigned __int64 m_faultAddress = 0;
    int m_faultThread = -1;
    std::vector<XMinidumpThread> m_threads;
    std::vector<XMinidumpModule> m_modules;
    std::vector<Memory> m_memory;
};
