#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>

namespace tev::platform
{
/// The registers that a walk up a stack goes by, numbered as debug information does: 6 is rbp, 7 rsp, 16 the place of the
/// instruction.
struct FrameState
{
    static constexpr std::size_t kRegisters = 17;
    static constexpr std::size_t kStackPointer = 7;
    static constexpr std::size_t kInstruction = 16;

    std::array<std::uint64_t, kRegisters> registers{};
};

/// Delivers eight bytes of the walked stack; false where they are not known.
using StackReader = std::function<bool(std::uint64_t address, std::uint64_t& value)>;
} // namespace tev::platform
