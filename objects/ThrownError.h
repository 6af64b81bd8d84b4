#pragma once

namespace tev
{
/// Keeps the system's code for which the calling thread throws CXFileException next: a failure that is told by what was
/// thrown has it, too.
void NoteThrownError(unsigned systemError) noexcept;
} // namespace tev
