#pragma once

#include <cstdint>

namespace tev
{
/// The system's identifier of the application's main thread, 0 until the start-up call has set it.
/// Safe from several threads at once.
std::uint64_t MainThreadId() noexcept;
void SetMainThreadId(std::uint64_t id) noexcept;
} // namespace tev
