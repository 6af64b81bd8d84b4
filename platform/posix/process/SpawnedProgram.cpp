#include "platform/posix/process/SpawnedProgram.h"

#include <csignal>

#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

extern char** environ;

namespace tev::platform
{
namespace
{
constexpr int kPassedDescriptor = 3;

/// A system value with functions to initialize and destroy it.
template <class T, int (*MAKE)(T*), int (*END)(T*)>
struct Made
{
    Made() noexcept : isGood(MAKE(&value) == 0) {}
    ~Made()
    {
        if (isGood)
            END(&value);
    }
    Made(const Made&) = delete;
    Made& operator=(const Made&) = delete;

    T value{};
    const bool isGood;
};
using FileActions = Made<posix_spawn_file_actions_t, posix_spawn_file_actions_init, posix_spawn_file_actions_destroy>;
using Attributes = Made<posix_spawnattr_t, posix_spawnattr_init, posix_spawnattr_destroy>;
} // namespace

pid_t SpawnProgram(const ProgramStart& start, char* const* arguments) noexcept
{
    FileActions actions;
    Attributes attributes;
    if (!actions.isGood || !attributes.isGood)
        return 0;
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attributes.value, &none);
    posix_spawnattr_setsigdefault(&attributes.value, &all);
    const int session = start.inOwnSession ? POSIX_SPAWN_SETSID : 0;
    posix_spawnattr_setflags(&attributes.value,
                             static_cast<short>(POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | session));
    for (int stream = 0; stream < kPassedDescriptor; ++stream)
        posix_spawn_file_actions_addopen(&actions.value, stream, "/dev/null", O_RDWR, 0);
    if (start.descriptor >= 0)
        posix_spawn_file_actions_adddup2(&actions.value, start.descriptor, kPassedDescriptor);
    pid_t program = 0;
    const auto spawn = start.isSearched ? posix_spawnp : posix_spawn;
    return spawn(&program, start.path, &actions.value, &attributes.value, arguments, environ) == 0 ? program : 0;
}
} // namespace tev::platform
