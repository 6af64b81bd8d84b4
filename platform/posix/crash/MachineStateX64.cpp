#if defined(__x86_64__)

#include "platform/posix/crash/MachineState.h"

#include <cstring>

#include <sys/user.h>

namespace tev::platform
{
namespace
{
constexpr std::uint32_t kSize = 1232;
static_assert(kSize <= MachineState::kMostBytes);
constexpr std::uint32_t kControlIntegerAndSegments = 0x100007;

// Offsets in the minidump's record.
constexpr std::size_t kFlags = 48;
constexpr std::size_t kSegmentCode = 56;
constexpr std::size_t kSegmentFs = 62;
constexpr std::size_t kSegmentGs = 64;
constexpr std::size_t kSegmentStack = 66;
constexpr std::size_t kProcessorFlags = 68;
constexpr std::size_t kFirstRegister = 120;

/// The general registers in the order of the record.
struct Registers
{
    std::uint64_t general[16]; // rax rcx rdx rbx rsp rbp rsi rdi r8 to r15
    std::uint64_t instruction;
    std::uint64_t flags;
    std::uint16_t code, fs, gs, stack;
};

template <class T>
void Put(MachineState& state, std::size_t offset, T value) noexcept
{
    std::memcpy(state.bytes + offset, &value, sizeof value);
}

void Encode(const Registers& registers, MachineState& state) noexcept
{
    std::memset(state.bytes, 0, kSize);
    Put(state, kFlags, kControlIntegerAndSegments);
    Put(state, kSegmentCode, registers.code);
    Put(state, kSegmentFs, registers.fs);
    Put(state, kSegmentGs, registers.gs);
    Put(state, kSegmentStack, registers.stack);
    Put(state, kProcessorFlags, static_cast<std::uint32_t>(registers.flags));
    std::memcpy(state.bytes + kFirstRegister, registers.general, sizeof registers.general);
    Put(state, kFirstRegister + sizeof registers.general, registers.instruction);
    state.size = kSize;
    state.stackPointer = registers.general[4];
    state.instruction = registers.instruction;
}
} // namespace

std::uint16_t MinidumpProcessor() noexcept
{
    return minidump::kX64;
}

void StateFromContext(const ucontext_t& context, MachineState& state) noexcept
{
    constexpr int kOrder[16] = {REG_RAX, REG_RCX, REG_RDX, REG_RBX, REG_RSP, REG_RBP, REG_RSI, REG_RDI,
                                REG_R8,  REG_R9,  REG_R10, REG_R11, REG_R12, REG_R13, REG_R14, REG_R15};
    const auto& from = context.uc_mcontext.gregs;
    Registers registers = {};
    for (int i = 0; i < 16; ++i)
        registers.general[i] = static_cast<std::uint64_t>(from[kOrder[i]]);
    registers.instruction = static_cast<std::uint64_t>(from[REG_RIP]);
    registers.flags = static_cast<std::uint64_t>(from[REG_EFL]);
    const auto segments = static_cast<std::uint64_t>(from[REG_CSGSFS]);
    registers.code = static_cast<std::uint16_t>(segments);
    registers.gs = static_cast<std::uint16_t>(segments >> 16);
    registers.fs = static_cast<std::uint16_t>(segments >> 32);
    registers.stack = static_cast<std::uint16_t>(segments >> 48);
    Encode(registers, state);
}

void StateFromRegisters(const user_regs_struct& from, MachineState& state) noexcept
{
    const Registers registers = {{from.rax, from.rcx, from.rdx, from.rbx, from.rsp, from.rbp, from.rsi, from.rdi,
                                  from.r8, from.r9, from.r10, from.r11, from.r12, from.r13, from.r14, from.r15},
                                 from.rip,
                                 from.eflags,
                                 static_cast<std::uint16_t>(from.cs),
                                 static_cast<std::uint16_t>(from.fs),
                                 static_cast<std::uint16_t>(from.gs),
                                 static_cast<std::uint16_t>(from.ss)};
    Encode(registers, state);
}
} // namespace tev::platform

#endif
