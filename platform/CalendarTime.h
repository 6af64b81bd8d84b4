#pragma once

#include <cstdint>
#include <ctime>

// Seconds since 1970-01-01 00:00:00 UTC to and from broken-down time. Local time is that of the environment's time zone
// at the moment of the call, so a program may change it while it runs. Safe from several threads at once, as long as no
// thread changes the environment at the same time.

namespace tev::platform
{
/// False when the year does not fit into the structure, which is then unspecified.
[[nodiscard]] bool ToLocalTime(std::int64_t seconds, std::tm& fields) noexcept;
[[nodiscard]] bool ToUtcTime(std::int64_t seconds, std::tm& fields) noexcept;

/// Fields may lie outside their ranges. With a negative daylight-saving flag, a time that occurs twice is the first of
/// the two, and one that a change of the clock leaves out counts as if the clock had not been changed yet, whatever the
/// process has converted before. False when the result does not fit.
[[nodiscard]] bool FromLocalTime(const std::tm& fields, std::int64_t& seconds) noexcept;
} // namespace tev::platform
