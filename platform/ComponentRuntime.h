#pragma once

namespace tev::platform
{
/// Prepares the calling thread for the platform's component objects; false when that fails. True, and nothing done, where
/// the platform has none. Each success is followed by one EndComponents on the same thread.
bool BeginComponents() noexcept;
void EndComponents() noexcept;
} // namespace tev::platform
