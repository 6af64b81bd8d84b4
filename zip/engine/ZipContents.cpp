#include "platform/SystemErrors.h"
#include "zip/engine/ZipDirectory.h"
#include "zip/engine/ZipVolumes.h"

#include <algorithm>
#include <cerrno>

namespace tev::platform
{
namespace
{
/// Of an end that is not the most likely one only its directory says whether it is one.
bool ReadDirectory(ZipVolumeBytes& volumes, const ZipDirectoryEnd& end, bool isFirst, ZipContents& contents,
                   ZipError& error)
{
    if (!isFirst && end.m_lastVolume != 0)
        return false;
    if (!volumes.Find(end.m_lastVolume, error))
        return false;
    contents.directory = ZipDirectory::Read(volumes, end, error);
    return contents.directory != nullptr;
}
} // namespace

std::wstring ZipVolumePath(const std::wstring& lastPath, std::uint32_t number)
{
    constexpr std::size_t kExtensionSize = 4;
    if (lastPath.size() <= kExtensionSize || lastPath[lastPath.size() - kExtensionSize] != L'.')
        return {};
    std::wstring digits = std::to_wstring(std::uint64_t{number} + 1);
    digits.insert(0, digits.size() < 2 ? 2 - digits.size() : 0, L'0');
    // The first letter of the extension stays: it may be a capital.
    return lastPath.substr(0, lastPath.size() - kExtensionSize + 2) + digits;
}

bool OpenZipContents(std::unique_ptr<ZipBytes> last, const ZipVolumeOpener& openVolume, ZipContents& contents,
                     ZipError& error)
{
    const std::uint64_t size = last->Size();
    const auto tailSize = static_cast<std::size_t>(std::min<std::uint64_t>(size, kLongestZipEnd));
    ZipBuffer tail(tailSize);
    std::size_t delivered = 0;
    if (!last->ReadAt(size - tailSize, tail.data(), tailSize, delivered))
    {
        error = {ZipFailure::System, LastSystemError()};
        return false;
    }
    tail.resize(delivered);
    const std::vector<ZipDirectoryEnd> ends = FindZipEnds(tail);
    error = {ZipFailure::NoArchive, 0};
    const auto volumes = std::make_shared<ZipVolumeBytes>(std::move(last), openVolume);
    ZipError firstError;
    for (const ZipDirectoryEnd& end : ends)
    {
        const bool isFirst = &end == &ends.front();
        if (ReadDirectory(*volumes, end, isFirst, contents, error))
        {
            contents.bytes = volumes;
            error = ZipError();
            return true;
        }
        firstError = isFirst ? error : firstError;
        if (error.failure == ZipFailure::System)
            return false;
    }
    error = ends.empty() ? error : firstError;
    return false;
}
} // namespace tev::platform
