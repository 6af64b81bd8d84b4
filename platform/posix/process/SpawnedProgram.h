#pragma once

#include <sys/types.h>

namespace tev::platform
{
struct ProgramStart
{
    const char* path;
    bool isSearched = false; ///< in PATH, where the path is a name only
    bool inOwnSession = false;
    int descriptor = -1; ///< which the program finds as its descriptor 3; must be above that here
};

/// Starts a program with the standard streams on /dev/null and signals as a new process has them; `arguments` ends with
/// null. 0 on failure.
pid_t SpawnProgram(const ProgramStart& start, char* const* arguments) noexcept;
} // namespace tev::platform
