#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>

namespace tev::platform
{
/// The registers that a stack walk uses, in DWARF's numbering: 6 is rbp, 7 rsp, 16 the address of the instruction.
struct FrameState
{
    static constexpr std::size_t kRegisters = 17;
    static constexpr std::size_t kStackPointer = 7;
    static constexpr std::size_t kInstruction = 16;

    std::array<std::uint64_t, kRegisters> registers{};
};

/// Reads eight bytes of the walked stack; false where the memory is unknown.
using StackReader = std::function<bool(std::uint64_t address, std::uint64_t& value)>;
} // namespace tev::platform
