#include "platform/ThreadPriority.h"

#include <sys/resource.h>

// On Linux a nice value belongs to a thread, and the process number 0 stands for the calling one.
namespace tev::platform
{
namespace
{
constexpr int kHighestNice = -10; // below this lie the system's own threads
} // namespace

int GetOwnPriority() noexcept
{
    return getpriority(PRIO_PROCESS, 0);
}

bool SetOwnPriority(int priority) noexcept
{
    return setpriority(PRIO_PROCESS, 0, priority) == 0;
}

bool RaiseOwnPriority() noexcept
{
    return SetOwnPriority(kHighestNice);
}
} // namespace tev::platform
