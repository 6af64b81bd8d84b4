#pragma once

#include <cstdint>
#include <string>

// What a database that opens its files itself asks of the system. Paths are in the form of system calls, as such a
// database takes them. Safe from several threads at once.

namespace tev::platform
{
struct DatabaseFile
{
    bool isRegular = false;
    std::uint64_t device = 0; ///< with `number` the identity of the file
    std::uint64_t number = 0;
    std::uint64_t size = 0;
};

/// False when there is no file or it cannot be looked at: LastSystemError() says why.
[[nodiscard]] bool FindDatabaseFile(const std::string& path, DatabaseFile& file);

// Whether this user may do so. LastSystemError() says why not.

bool MayReadFile(const std::string& path);
bool MayWriteFile(const std::string& path);
bool MayWriteFolderOf(const std::string& path);

/// Creates an empty file, with missing folders above it, for this user alone; an existing one is left as it is. False with
/// the reason in LastSystemError().
[[nodiscard]] bool CreateDatabaseFile(const std::string& path);
} // namespace tev::platform
