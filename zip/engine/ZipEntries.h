#pragma once

#include "zip/engine/ZipDirectory.h"

#include <zip.h>

// Entries of libzip's archives, and of archives that were opened, in the engine's terms.

namespace tev::platform
{
std::string ZipSlotName(zip_t* archive, zip_uint64_t slot);
ZipEntryKind ZipSlotKind(zip_t* archive, zip_uint64_t slot);
/// An entry that was added. False with the error in the archive.
[[nodiscard]] bool DescribeZipSlot(zip_t* archive, zip_uint64_t slot, ZipEntry& entry);
/// An entry of an archive that was opened. One whose numbers are damaged is described as far as they can be.
ZipEntry DescribeZipHeader(const ZipContents& contents, std::uint64_t index);

zip_uint16_t LibZipEncryption(ZipEncryption encryption);
} // namespace tev::platform
