#include "zip/engine/ZipEntries.h"

#include "base/LittleEndian.h"
#include "zip/engine/ZipFields.h"
#include "zip/engine/ZipRecords.h"

namespace tev::platform
{
namespace
{
constexpr zip_uint16_t kTimestampSize = 5; // flags, and the last change
constexpr std::uint32_t kReadOnlyAttribute = 0x1;
constexpr std::uint32_t kUnixMayWrite = 0200;

struct EncryptionRow
{
    ZipEncryption encryption;
    zip_uint16_t method;
};

constexpr EncryptionRow kEncryptions[] = {
    {ZipEncryption::None, ZIP_EM_NONE},      {ZipEncryption::Traditional, ZIP_EM_TRAD_PKWARE},
    {ZipEncryption::Aes128, ZIP_EM_AES_128}, {ZipEncryption::Aes192, ZIP_EM_AES_192},
    {ZipEncryption::Aes256, ZIP_EM_AES_256},
};

struct Attributes
{
    zip_uint8_t host = ZIP_OPSYS_DOS;
    zip_uint32_t value = 0;
};

Attributes AttributesOf(zip_t* archive, zip_uint64_t slot)
{
    Attributes attributes;
    zip_file_get_external_attributes(archive, slot, 0, &attributes.host, &attributes.value);
    return attributes;
}

std::uint32_t SystemAttributes(const Attributes& attributes, bool isFolder)
{
    std::uint32_t result = attributes.value & 0xFF;
    const std::uint32_t unixMode = attributes.value >> 16;
    if (attributes.host == ZIP_OPSYS_UNIX && unixMode != 0)
        result = (unixMode & kUnixMayWrite) == 0 ? kReadOnlyAttribute : 0;
    return isFolder ? result | kZipFolderAttribute : result & ~kZipFolderAttribute;
}

ZipEncryption EncryptionOf(zip_uint16_t method)
{
    for (const EncryptionRow& row : kEncryptions)
    {
        if (row.method == method)
            return row.encryption;
    }
    return ZipEncryption::Unknown;
}
} // namespace

std::string ZipSlotName(zip_t* archive, zip_uint64_t slot)
{
    // What is flagged as UTF-8, or has a field for Unicode, comes as UTF-8 here.
    const char* const name = zip_get_name(archive, slot, ZIP_FL_ENC_RAW);
    return name != nullptr ? ZipEntryName(name, false, {}) : std::string();
}

ZipEntryKind ZipSlotKind(zip_t* archive, zip_uint64_t slot)
{
    return ZipKindOf(ZipSlotName(archive, slot), AttributesOf(archive, slot).value);
}

bool DescribeZipSlot(zip_t* archive, zip_uint64_t slot, ZipEntry& entry)
{
    zip_stat_t status;
    if (zip_stat_index(archive, slot, 0, &status) != 0)
        return false;
    const Attributes attributes = AttributesOf(archive, slot);
    entry = ZipEntry();
    entry.isNew = true;
    entry.name = ZipSlotName(archive, slot);
    entry.kind = ZipKindOf(entry.name, attributes.value);
    entry.attributes = SystemAttributes(attributes, entry.kind == ZipEntryKind::Folder);
    entry.permissions = attributes.value >> 16 & kZipPermissions;
    entry.method = status.comp_method;
    entry.encryption = EncryptionOf(status.encryption_method);
    if ((status.valid & ZIP_STAT_MTIME) != 0)
        entry.times.lastWrite = status.mtime;
    zip_uint16_t size = 0;
    const zip_uint8_t* const field =
        zip_file_extra_field_get_by_id(archive, slot, kZipTimestampField, 0, &size, ZIP_FL_CENTRAL);
    if (field == nullptr)
        zip_error_clear(archive);
    else if (size >= kTimestampSize)
        entry.times.lastWrite = static_cast<std::int32_t>(LoadLittleEndian<std::uint32_t>(field + 1));
    return true;
}

ZipEntry DescribeZipHeader(const ZipContents& contents, std::uint64_t index)
{
    ZipHeader header = contents.directory->Header(index);
    ZipEntry entry;
    entry.name = std::move(header.name);
    entry.kind = header.kind;
    entry.attributes = SystemAttributes({header.host, header.attributes}, header.kind == ZipEntryKind::Folder);
    entry.permissions = header.Permissions();
    entry.size = header.size;
    entry.compressedSize = header.compressedSize;
    entry.checksum = header.checksum.value_or(0);
    entry.method = header.method;
    entry.encryption = header.encryption;
    entry.times = contents.directory->Times(index);
    ZipTimes local;
    ZipError error;
    if (header.hasLocalTimes && ReadLocalTimes(contents, header, local, error))
    {
        entry.times.lastAccess = local.lastAccess ? local.lastAccess : entry.times.lastAccess;
        entry.times.creation = local.creation ? local.creation : entry.times.creation;
    }
    return entry;
}

zip_uint16_t LibZipEncryption(ZipEncryption encryption)
{
    for (const EncryptionRow& row : kEncryptions)
    {
        if (row.encryption == encryption)
            return row.method;
    }
    return ZIP_EM_UNKNOWN;
}
} // namespace tev::platform
