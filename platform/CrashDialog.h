#pragma once

#include <string>
#include <vector>

namespace tev::platform
{
/// Starts the program that shows reports, tev-crash-dialog, with these arguments in UTF-8; it outlives this process. It is
/// searched for at TEVTOOLS_CRASH_DIALOG, else where the helper for dumps is. False where there is none, or no display.
bool StartCrashDialog(const std::vector<std::string>& arguments) noexcept;
} // namespace tev::platform
