#pragma once

#include "platform/ZipEngine.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

// Split archives: files name.z01, name.z02, ..., of which the last one is name.zip and holds the end of the directory.

namespace tev::platform
{
/// Opens the volume of that number, 0 for the first; null, with the error in errno, where it is missing.
using ZipVolumeOpener = std::function<std::unique_ptr<ZipBytes>(std::uint32_t number)>;

/// Where that volume, if it is not the last one, lies beside the last one; empty when that has no extension of three letters.
std::wstring ZipVolumePath(const std::wstring& lastPath, std::uint32_t number);

/// Makes one archive of a split one: `bytes`, which holds its last volume, becomes the bytes of all of them, one behind the
/// other, with a directory that fits; `isSplit` is set. Leaves both alone where the archive is none that is split. The
/// directory is held in memory, and takes hardly more than in the volumes. What other volumes are there is asked of the
/// last one, and each length, offset and number of a volume is checked.
[[nodiscard]] bool JoinZipVolumes(std::unique_ptr<ZipBytes>& bytes, const ZipVolumeOpener& openVolume, bool& isSplit,
                                  ZipError& error);
} // namespace tev::platform
