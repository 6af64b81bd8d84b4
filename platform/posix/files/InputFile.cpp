#include "platform/InputFile.h"
#include "platform/Cancellation.h"

#include "platform/IoLoops.h"
#include "platform/PathNames.h"
#include "platform/posix/files/OwnedDescriptor.h"

#include <cerrno>
#include <limits>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>

namespace tev::platform
{
namespace
{
class PosixInputFile final : public InputFile
{
public:
    PosixInputFile(OwnedDescriptor descriptor, std::uint64_t size) : m_descriptor(std::move(descriptor)), m_size(size)
    {
    }

    std::uint64_t Size() const override { return m_size; }

    std::size_t ReadAt(std::uint64_t position, void* bytes, std::size_t count, int& error) const override
    {
        const WithoutCancellation whole;
        error = 0;
        if (position > static_cast<std::uint64_t>(std::numeric_limits<off_t>::max()) - count)
            return 0;
        auto at = static_cast<off_t>(position);
        const auto readOnce = [&](void* part, std::size_t size) {
            const ssize_t got = pread(m_descriptor.Get(), part, size, at);
            at += got > 0 ? got : 0;
            return got;
        };
        std::size_t delivered = 0;
        // What ends early is read again: only that tells a failure from the end of the file.
        for (std::size_t got = 1; got != 0 && delivered < count; delivered += got)
        {
            if (!ReadFully(readOnce, static_cast<char*>(bytes) + delivered, count - delivered, got))
                error = errno;
        }
        return delivered;
    }

private:
    OwnedDescriptor m_descriptor;
    std::uint64_t m_size;
};
} // namespace

std::shared_ptr<const InputFile> InputFile::Open(const wchar_t* path)
{
    const WithoutCancellation whole;
    std::string name;
    if (!WidePathToSystem(path, name))
    {
        errno = EILSEQ;
        return nullptr;
    }
    // Opening a pipe must not wait for a writer.
    OwnedDescriptor descriptor(open(name.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status;
    if (descriptor.Get() < 0 || fstat(descriptor.Get(), &status) != 0)
        return nullptr;
    if (!S_ISREG(status.st_mode))
    {
        errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
        return nullptr;
    }
    const auto size = static_cast<std::uint64_t>(status.st_size);
    return std::make_shared<PosixInputFile>(std::move(descriptor), size);
}
} // namespace tev::platform
