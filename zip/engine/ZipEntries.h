#pragma once

#include "zip/engine/ZipEngine.h"

#include <zip.h>

// An entry of libzip's archive in the engine's terms.

namespace tev::platform
{
std::string ZipSlotName(zip_t* archive, zip_uint64_t slot);
ZipEntryKind ZipSlotKind(zip_t* archive, zip_uint64_t slot);
/// False with the error in the archive.
[[nodiscard]] bool DescribeZipSlot(zip_t* archive, zip_uint64_t slot, bool isNew, ZipEntry& entry);

zip_uint16_t LibZipEncryption(ZipEncryption encryption);
} // namespace tev::platform
