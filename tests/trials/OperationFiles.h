#pragma once

#include "text/CXTString.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

// The files of operations: what they find, and what must be kept of it.
namespace tev::trials
{
namespace fs = std::filesystem;
using Text = CXTString<wchar_t>;

constexpr fs::perms kMode = fs::perms(0640);
constexpr uid_t kOwner = 12345;

inline Text PathOf(const fs::path& folder, const char* name)
{
    return Text((folder / name).wstring().c_str());
}

inline std::string ReadAll(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

inline void WriteAll(const fs::path& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

/// Gives the file another owner, where this process may.
inline void GiveAway(const fs::path& path)
{
    if (geteuid() == 0 && chown(path.c_str(), kOwner, kOwner) != 0)
        std::abort();
}

inline bool IsOwnerKept(const fs::path& path)
{
    struct stat status;
    const uid_t owner = geteuid() == 0 ? kOwner : geteuid();
    return stat(path.c_str(), &status) == 0 && status.st_uid == owner && (owner != kOwner || status.st_gid == owner);
}

/// `name` in the folder becomes a link to a file with a mode and an owner of its own, which replacing must keep.
inline void HideBehindLink(const fs::path& folder, const char* name)
{
    const std::string target = std::string("target-of-") + name;
    fs::rename(folder / name, folder / target);
    fs::permissions(folder / target, kMode);
    GiveAway(folder / target);
    fs::create_symlink(target, folder / name);
}

inline bool IsLinkKept(const fs::path& folder, const char* name)
{
    return fs::is_symlink(folder / name) && fs::status(folder / name).permissions() == kMode &&
           IsOwnerKept(folder / name);
}
} // namespace tev::trials
