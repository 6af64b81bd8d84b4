#pragma once

#include "platform/ContainedFile.h"

#include <cerrno>
#include <string_view>

#include <fcntl.h>
#include <sys/stat.h>

// How names are followed beneath a folder, one step of ContainedFolder at a time. Failures leave the error in errno.

namespace tev::platform
{
constexpr int kFolderFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

inline bool FailWith(int error)
{
    errno = error;
    return false;
}

inline FileIdentity IdentityOf(const struct stat& status)
{
    return {status.st_dev, status.st_ino};
}

bool IsContainedName(std::string_view name);

/// Whether the kernel follows a name beneath a folder, through no link, in one step.
bool KnowsOneStep();
int OpenInOneStep(int folder, const char* name, int flags, mode_t mode);
int OpenComponent(int folder, const char* name, int flags, mode_t mode);
int DuplicateDescriptor(int descriptor);
} // namespace tev::platform
