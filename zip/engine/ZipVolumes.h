#pragma once

#include "zip/engine/ZipEngine.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

// Split archives: files name.z01, name.z02, ..., of which the last one is name.zip and holds the end of the directory.

namespace tev::platform
{
struct ZipContents;

/// The path of a volume other than the last one, next to the last one; empty when that has no extension of three letters.
std::wstring ZipVolumePath(const std::wstring& lastPath, std::uint32_t number);

/// Opens an archive, or the last volume of a split one, for reading: finds its volumes and reads its directory.
[[nodiscard]] bool OpenZipContents(std::unique_ptr<ZipBytes> last, const ZipVolumeOpener& openVolume,
                                   ZipContents& contents, ZipError& error);
} // namespace tev::platform
