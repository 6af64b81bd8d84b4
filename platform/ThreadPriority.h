#pragma once

// The calling thread's priority, as a number of the system's own. Safe from several threads at once.

namespace tev::platform
{
int GetOwnPriority() noexcept;
/// False when the system refuses: it may allow only the administrator to raise a priority.
bool SetOwnPriority(int priority) noexcept;
/// Raises the priority to the highest that is not a real-time one. False when the system refuses.
bool RaiseOwnPriority() noexcept;
} // namespace tev::platform
