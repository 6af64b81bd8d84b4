#pragma once

#include "platform/FrameState.h"

#include <string_view>

namespace tev::platform
{
/// Goes from a frame to its caller by a module's table of frames (.eh_frame), which stands at `tableAddress`; both addresses
/// as the module's file counts them. False when the table does not tell, or tells what is not understood.
[[nodiscard]] bool LeaveFrameByTable(std::string_view table, std::uint64_t tableAddress, std::uint64_t address,
                                     FrameState& state, const StackReader& stack);
} // namespace tev::platform
