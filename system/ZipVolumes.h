#pragma once

#include "platform/ZipEngine.h"
#include "system/ZipOutcome.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

// Split archives: files name.z01, name.z02, ..., of which the last one is name.zip and holds the end of the directory.

namespace tev
{
/// Opens the volume of that number, 0 for the first; null, with the error in errno, where it is missing.
using ZipVolumeOpener = std::function<std::unique_ptr<platform::ZipBytes>(std::uint32_t number)>;

/// The volumes beside the last one, whose path is given.
ZipVolumeOpener VolumesBeside(const std::wstring& lastPath);

/// Makes one archive of a split one: `bytes`, which holds its last volume, becomes the bytes of all of them, one behind the
/// other, with a directory that fits; `isSplit` is set. Leaves both alone where the archive is none that is split. The
/// directory is held in memory, and takes no more than it does in the volumes. What other volumes are there is asked of
/// the last one, and each length, offset and number of a volume is checked.
[[nodiscard]] ZipOutcome JoinZipVolumes(std::unique_ptr<platform::ZipBytes>& bytes, const ZipVolumeOpener& openVolume,
                                        bool& isSplit);
} // namespace tev
