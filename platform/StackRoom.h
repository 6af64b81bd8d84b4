#pragma once

namespace tev::platform
{
/// False when the calling thread's stack is nearly used up: when less than a quarter of it is left, or than 64 KiB of a
/// large one. What recurses as deep as its input says stops then. True where the thread does not run on its own stack. Where the
/// system cannot say how large the stack is, for lack of memory or of descriptors, 192 KiB below the outermost call count.
/// Safe from several threads at once.
bool HasStackRoom() noexcept;
} // namespace tev::platform
