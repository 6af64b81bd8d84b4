#pragma once

#include <cstddef>
#include <cstdint>

namespace tev
{
/// What reading dumps and walking stacks needs to know of a kind of processor. Each has a source of its own.
struct Processor
{
    std::uint16_t minidumpNumber;
    std::uint16_t elfMachine;

    // A minidump's record of a thread's registers: eight bytes each.
    std::size_t recordSize;
    std::size_t firstRegister; ///< offset
    std::size_t registerCount;

    // Frames.
    std::size_t frameRegisterCount;   ///< numbered as DWARF does
    const unsigned char* recordIndex; ///< of each of these in the record
    std::size_t stackPointer;         ///< a DWARF number
    std::size_t instruction;
    bool isReturnOnStack; ///< whether a call leaves its return address there
};

extern const Processor kProcessorX64;

/// Null for a processor that is not known.
const Processor* FindProcessor(std::uint16_t minidumpNumber) noexcept;
} // namespace tev
