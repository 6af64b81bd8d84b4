#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>

namespace tev
{
struct Processor;

/// The registers that a stack walk uses, by their DWARF numbers on the processor.
struct FrameState
{
    static constexpr std::size_t kMostRegisters = 33;

    explicit FrameState(const Processor& kind) noexcept : processor(&kind) {}

    const Processor* processor;
    /// Whether the frame was interrupted at its instruction; else that is where its call returns to.
    bool isInterrupted = true;
    std::array<std::uint64_t, kMostRegisters> registers{};
};

/// Reads eight bytes of the walked stack; false where the memory is unknown.
using StackReader = std::function<bool(std::uint64_t address, std::uint64_t& value)>;
} // namespace tev
