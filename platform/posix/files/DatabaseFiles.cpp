#include "platform/DatabaseFiles.h"
#include "platform/Cancellation.h"

#include "platform/posix/files/OwnedDescriptor.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tev::platform
{
namespace
{
constexpr mode_t kOwnFolder = 0700;
constexpr mode_t kOwnFile = 0600;
} // namespace

bool FindDatabaseFile(const std::string& path, DatabaseFile& file)
{
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0)
        return false;
    file.isRegular = S_ISREG(status.st_mode);
    file.device = status.st_dev;
    file.number = status.st_ino;
    file.size = static_cast<std::uint64_t>(status.st_size);
    return true;
}

bool MayReadFile(const std::string& path)
{
    return access(path.c_str(), R_OK) == 0;
}

bool MayWriteFile(const std::string& path)
{
    return access(path.c_str(), W_OK) == 0;
}

bool MayWriteFolderOf(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    const std::string folder = slash == path.npos ? "." : path.substr(0, slash + 1);
    return access(folder.c_str(), W_OK) == 0;
}

bool CreateDatabaseFile(const std::string& path)
{
    const WithoutCancellation whole;
    for (std::size_t end = path.find('/', 1); end != path.npos; end = path.find('/', end + 1))
        mkdir(path.substr(0, end).c_str(), kOwnFolder); // a failure here makes opening the file fail
    return OwnedDescriptor(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kOwnFile)).Get() >= 0;
}
} // namespace tev::platform
