#pragma once

#include "zip/engine/ZipEngine.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

// Split archives: files name.z01, name.z02, ..., of which the last one is name.zip and holds the end of the directory.

namespace tev::platform
{
/// Opens the volume of that number, 0 for the first; null, with the error in errno, where it is missing.
using ZipVolumeOpener = std::function<std::unique_ptr<ZipBytes>(std::uint32_t number)>;

/// The path of a volume other than the last one, next to the last one; empty when that has no extension of three letters.
std::wstring ZipVolumePath(const std::wstring& lastPath, std::uint32_t number);

/// Makes `bytes`, which hold an archive, or the last volume of a split one, fit for the engine: the volumes come one behind
/// the other, with a directory that fits; one of an archive behind a program that unpacks it, of which it knows nothing,
/// is found; a name that no file can have gets a backslash, and so is no safe one. Where that is not needed, and where the
/// engine will say what is wrong, the bytes stay as they are. `isReadOnly` is set for what saving would not keep: volumes,
/// and a program before the archive. A new directory is held in memory, and takes hardly more than the old one. Each
/// length, offset and number of a volume is checked.
[[nodiscard]] bool PrepareZip(std::unique_ptr<ZipBytes>& bytes, const ZipVolumeOpener& openVolume, bool& isReadOnly,
                              ZipError& error);
} // namespace tev::platform
