#pragma once

#include <algorithm>

namespace tev
{

/// Slots that an array of `size` elements gains when its growth setting is automatic: an eighth, at least 4, at most 1024.
template <typename Count>
constexpr Count AutomaticGrowthStep(Count size) noexcept
{
    return std::clamp<Count>(size / 8, 4, 1024);
}

} // namespace tev
