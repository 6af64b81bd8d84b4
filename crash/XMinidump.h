#pragma once

#include "text/CXTString.h"

#include <array>
#include <memory>
#include <vector>

/// A thread at the time of the dump.
struct XMinidumpThread
{
    unsigned int m_id = 0;
    bool m_hasRegisters = false;
    /// rax, rcx, rdx, rbx, rsp, rbp, rsi, rdi, r8 to r15, rip.
    std::array<unsigned __int64, 17> m_registers{};

    unsigned __int64 GetStackPointer() const noexcept { return m_registers[4]; }
    unsigned __int64 GetInstruction() const noexcept { return m_registers[16]; }
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

/// Reads a minidump of a process on x86-64 Linux: the signal, threads, modules, stacks. The file is untrusted input; damaged
/// parts count as missing.
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
    /// Reads a file of up to 1 GiB. False when it cannot be read or is no dump.
    [[nodiscard]] bool Load(const wchar_t* path);

    unsigned int GetProcessId() const noexcept { return m_processId; }
    bool HasSignal() const noexcept { return m_signal != 0; }
    /// The system's number; 0 when the dump was made without a signal.
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

private:
    struct Reader;
    struct Memory
    {
        unsigned __int64 m_start;
        std::size_t m_offset; ///< in the file
        std::size_t m_size;
    };

    int FindModule(unsigned __int64 address) const noexcept;
    bool ReadWord(unsigned __int64 address, unsigned __int64& value) const noexcept;

    std::vector<unsigned char> m_bytes;
    unsigned int m_processId = 0;
    unsigned int m_signal = 0;
    unsigned int m_signalCode = 0;
    unsigned __int64 m_faultAddress = 0;
    int m_faultThread = -1;
    std::vector<XMinidumpThread> m_threads;
    std::vector<XMinidumpModule> m_modules;
    std::vector<Memory> m_memory;
};
