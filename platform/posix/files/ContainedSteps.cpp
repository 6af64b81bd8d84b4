#include "platform/posix/files/ContainedSteps.h"
#include "platform/Cancellation.h"

#include "platform/posix/files/OwnedDescriptor.h"

#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace tev::platform
{
namespace
{
constexpr int kMostRetries = 100;

/// Whether the kernel, or a filter around the process, does not know the call at all.
bool IsUnknownCall(int error)
{
    return error == ENOSYS || error == EPERM || error == E2BIG;
}
} // namespace

bool IsContainedName(std::string_view name)
{
    for (std::size_t start = 0;;)
    {
        const std::size_t end = name.find('/', start);
        const std::string_view component = name.substr(start, end - start);
        if (component.empty() || component == "." || component == "..")
            return false;
        if (end == name.npos)
            return name.find('\0') == name.npos;
        start = end + 1;
    }
}

int OpenInOneStep(int folder, const char* name, int flags, mode_t mode)
{
    open_how how = {};
    how.flags = static_cast<unsigned>(flags);
    how.mode = (flags & O_CREAT) != 0 ? mode : 0;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS;
    for (int retry = 0;; ++retry)
    {
        const long descriptor = syscall(SYS_openat2, folder, name, &how, sizeof how);
        // A rename anywhere in the system while the call runs makes it start again.
        if (descriptor >= 0 || (errno != EAGAIN && errno != EINTR) || retry == kMostRetries)
            return static_cast<int>(descriptor);
    }
}

bool KnowsOneStep()
{
    static const bool isKnown = [] {
        const OwnedDescriptor root(OpenInOneStep(AT_FDCWD, ".", kFolderFlags, 0));
        return root.Get() >= 0 || !IsUnknownCall(errno);
    }();
    return isKnown;
}

int OpenComponent(int folder, const char* name, int flags, mode_t mode)
{
    const WithoutCancellation whole;
    for (;;)
    {
        const int descriptor = openat(folder, name, flags | O_NOFOLLOW, mode);
        if (descriptor >= 0 || errno != EINTR)
            return descriptor;
    }
}

int DuplicateDescriptor(int descriptor)
{
    const WithoutCancellation whole;
    return fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
}
} // namespace tev::platform
