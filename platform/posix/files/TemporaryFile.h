#pragma once

#include <string>

#include <sys/stat.h>
#include <sys/types.h>

// Files that later take the place of others in their folder. Failures leave the error in errno.
//
// While such a file is written it has no name where the file system supports that, so that nothing is left of it when its
// process ends. Otherwise, and in the moment before it takes its place, it has a name of its own and a lock on its open
// file description, by which files of ended processes are told from those that are being written.

namespace tev::platform
{
/// A name that no file of a living process has: ".tevtools-<process>-<number>.tmp".
std::string NewTemporaryName();

/// Creates a file for writing in the folder that is open as `folder`. `name` becomes the name that it has, or that
/// LinkTemporary is to give it when `isNamed` is false. -1 on failure.
[[nodiscard]] int CreateTemporary(int folder, mode_t mode, std::string& name, bool& isNamed);

/// Gives an unnamed file a name; fails with EEXIST when another file has it.
[[nodiscard]] bool LinkTemporary(int descriptor, int folder, const char* name) noexcept;

/// What a new file has of the one that it replaces.
enum class GivenOwner
{
    Both, ///< owner and group
    Group,
    Neither
};
/// Gives a new file the owner and the group, as far as the system permits it; false on other failures.
[[nodiscard]] bool GiveOwner(int descriptor, const struct stat& replaced, GivenOwner& given) noexcept;

/// Removes the temporary files in a folder that ended processes left. Leaves what it cannot open.
void RemoveLeftTemporaries(int folder) noexcept;
} // namespace tev::platform
