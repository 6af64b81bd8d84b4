#pragma once

#include "crash/FrameState.h"

#include <string_view>

namespace tev
{
/// Evaluates a DWARF expression of call frame information; `first` is the address on the stack at its start, null for none.
/// False for operations that are not supported, and where memory is unknown.
[[nodiscard]] bool EvaluateExpression(std::string_view expression, const std::uint64_t* first, const FrameState& state,
                                      const StackReader& stack, std::uint64_t& result);
} // namespace tev
