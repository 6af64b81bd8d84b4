#include "zip/engine/ZipVolumes.h"

#include "platform/SystemErrors.h"
#include "zip/engine/ZipDirectory.h"

#include <algorithm>
#include <cerrno>

namespace tev::platform
{
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

bool PrepareZip(std::unique_ptr<ZipBytes>& bytes, const ZipVolumeOpener& openVolume, bool& isReadOnly, ZipError& error)
{
    const std::uint64_t size = bytes->Size();
    const auto tailSize = static_cast<std::size_t>(std::min<std::uint64_t>(size, kLongestZipEnd));
    ZipBuffer tail(tailSize);
    std::size_t delivered = 0;
    if (!bytes->ReadAt(size - tailSize, tail.data(), tailSize, delivered))
    {
        error = {ZipFailure::System, LastSystemError()};
        return false;
    }
    tail.resize(delivered);
    const std::optional<ZipDirectoryEnd> end = FindZipEnd(tail);
    if (!end)
        return true;

    const bool isSplit = end->m_lastVolume != 0;
    ZipVolumeBytes volumes(std::move(bytes), openVolume);
    if (!volumes.Find(end->m_lastVolume, error))
        return false;
    ZipDirectoryRewriter rewriter(volumes, *end);
    const bool isRewritten = rewriter.Rewrite(error);
    isReadOnly = isReadOnly || isSplit || (isRewritten && rewriter.HasPrefix());
    if (!isRewritten && (isSplit || error.failure == ZipFailure::System))
        return false;
    if (isRewritten && (isSplit || rewriter.IsMended()))
        bytes = WithDirectory(std::move(volumes), rewriter.Start(), rewriter.TakeDirectory());
    else
        bytes = volumes.TakeLast();
    error = ZipError();
    return true;
}
} // namespace tev::platform
