#pragma once

#include "platform/FrameState.h"

#include <string_view>

namespace tev::platform
{
/// Unwinds a frame to its caller's with a module's call frame information (.eh_frame) at `tableAddress`; both addresses are
/// the file's virtual addresses. False when the table has no entry for the address, or one that is not supported.
[[nodiscard]] bool LeaveFrameByTable(std::string_view table, std::uint64_t tableAddress, std::uint64_t address,
                                     FrameState& state, const StackReader& stack);
} // namespace tev::platform
