#include "zip/engine/ZipVolumeBytes.h"

#include "platform/SystemErrors.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <utility>

namespace tev::platform
{
namespace
{
class JoinedBytes final : public ZipBytes
{
public:
    JoinedBytes(std::shared_ptr<ZipBytes> archive, std::uint64_t archiveSize, ZipBuffer directory)
        : m_archive(std::move(archive)), m_archiveSize(archiveSize), m_directory(std::move(directory))
    {
    }

    std::uint64_t Size() const override { return m_archiveSize + m_directory.size(); }

    bool ReadAt(std::uint64_t offset, void* buffer, std::size_t count, std::size_t& delivered) override
    {
        delivered = 0;
        if (offset < m_archiveSize)
        {
            const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(count, m_archiveSize - offset));
            if (!m_archive->ReadAt(offset, buffer, wanted, delivered) || delivered < wanted)
                return delivered == wanted;
            offset += wanted;
        }
        const std::uint64_t within = offset - m_archiveSize;
        if (within < m_directory.size())
        {
            const auto at = static_cast<std::size_t>(within);
            const std::size_t given = std::min(count - delivered, m_directory.size() - at);
            std::memcpy(static_cast<char*>(buffer) + delivered, m_directory.data() + at, given);
            delivered += given;
        }
        return true;
    }

private:
    std::shared_ptr<ZipBytes> m_archive;
    std::uint64_t m_archiveSize;
    ZipBuffer m_directory;
};
} // namespace

ZipVolumeBytes::ZipVolumeBytes(std::unique_ptr<ZipBytes> last, ZipVolumeOpener open)
    : m_last(std::move(last)), m_open(std::move(open))
{
}

bool ZipVolumeBytes::Find(std::uint32_t lastVolume, ZipError& error)
{
    std::uint64_t start = 0;
    m_starts.clear();
    m_size = 0;
    for (std::uint32_t number = 0; number <= lastVolume; ++number)
    {
        m_starts.push_back(start);
        const ZipBytes* const volume = number == lastVolume ? m_last.get() : OpenVolume(number);
        if (volume == nullptr)
        {
            error = errno == ENOENT ? ZipError{ZipFailure::MissingVolume, 0}
                                    : ZipError{ZipFailure::System, LastSystemError()};
            return false;
        }
        if (volume->Size() > std::numeric_limits<std::int64_t>::max() - start)
        {
            error = {ZipFailure::Damaged, 0};
            return false;
        }
        start += volume->Size();
    }
    m_size = start;
    return true;
}

std::optional<std::uint64_t> ZipVolumeBytes::Position(const ZipPlace& place) const
{
    if (place.m_volume >= m_starts.size())
        return std::nullopt;
    const std::uint64_t start = m_starts[place.m_volume];
    const std::uint64_t end = place.m_volume + 1 == m_starts.size() ? m_size : m_starts[place.m_volume + 1];
    if (place.m_offset > end - start)
        return std::nullopt;
    return start + place.m_offset;
}

bool ZipVolumeBytes::ReadAt(std::uint64_t offset, void* buffer, std::size_t count, std::size_t& delivered)
{
    delivered = 0;
    while (delivered < count && offset < m_size)
    {
        const auto next = std::upper_bound(m_starts.begin(), m_starts.end(), offset);
        const auto number = static_cast<std::uint32_t>(next - m_starts.begin() - 1);
        const std::uint64_t end = next == m_starts.end() ? m_size : *next;
        ZipBytes* const volume = OpenVolume(number);
        if (volume == nullptr)
            return false;
        const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(count - delivered, end - offset));
        std::size_t got = 0;
        if (!volume->ReadAt(offset - m_starts[number], static_cast<char*>(buffer) + delivered, wanted, got))
            return false;
        delivered += got;
        offset += got;
        if (got < wanted) // the volume was truncated meanwhile
            break;
    }
    return true;
}

bool ZipVolumeBytes::ReadExactly(std::uint64_t offset, std::size_t count, ZipBuffer& bytes)
{
    errno = 0;
    if (offset > m_size || m_size - offset < count)
        return false;
    bytes.resize(count);
    std::size_t delivered = 0;
    return ReadAt(offset, bytes.data(), count, delivered) && delivered == count;
}

ZipBytes* ZipVolumeBytes::OpenVolume(std::uint32_t number)
{
    if (number + 1 == m_starts.size() && m_size != 0)
        return m_last.get();
    if (m_opened == nullptr || m_openedNumber != number)
    {
        m_opened = m_open(number);
        m_openedNumber = number;
    }
    return m_opened.get();
}

std::unique_ptr<ZipBytes> WithDirectory(std::shared_ptr<ZipBytes> archive, std::uint64_t start, ZipBuffer directory)
{
    return std::make_unique<JoinedBytes>(std::move(archive), start, std::move(directory));
}
} // namespace tev::platform
