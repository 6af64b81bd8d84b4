#pragma once

#include "crash/FrameState.h"
#include "crash/UntrustedBytes.h"

namespace tev
{
/// What became of unwinding a frame.
enum class FrameStep
{
    kDone,      ///< the state is the caller's
    kOutermost, ///< the frame has no caller
    kUnknown    ///< the rules are missing or not supported, or the stack's memory is unknown
};

/// Unwinds a frame to its caller's with a module's call frame information (.eh_frame) at `tableAddress`; both addresses are
/// the file's virtual addresses. The state changes only when this is done.
[[nodiscard]] FrameStep LeaveFrameByTable(const UntrustedBytes& module, const ByteRange& table,
                                          std::uint64_t tableAddress, std::uint64_t address, FrameState& state,
                                          const StackReader& stack);
} // namespace tev
