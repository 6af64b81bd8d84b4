#include "zip/engine/ZipEntries.h"

#include <string_view>

namespace tev::platform
{
namespace
{
constexpr zip_uint16_t kTimestampField = 0x5455;
constexpr zip_uint16_t kFieldsOfTimes[] = {kTimestampField, 0x5855, 0x000A};
constexpr unsigned char kTimesInLocalHeader = 6; ///< flags of the times that only the local header holds

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

void AppendNumber(std::string& bytes, zip_uint16_t number)
{
    bytes += static_cast<char>(number & 0xFF);
    bytes += static_cast<char>(number >> 8);
}

/// One extra field with its header, empty where there is none.
std::string ExtraField(zip_t* archive, zip_uint64_t slot, zip_uint16_t id, zip_flags_t where)
{
    zip_uint16_t size = 0;
    const zip_uint8_t* const contents = zip_file_extra_field_get_by_id(archive, slot, id, 0, &size, where);
    std::string field;
    if (contents == nullptr)
    {
        zip_error_clear(archive);
        return field;
    }
    AppendNumber(field, id);
    AppendNumber(field, size);
    return field.append(reinterpret_cast<const char*>(contents), size);
}

ZipTimes TimesOf(zip_t* archive, zip_uint64_t slot, bool isNew)
{
    std::string extra;
    for (const zip_uint16_t id : kFieldsOfTimes)
        extra += ExtraField(archive, slot, id, ZIP_FL_CENTRAL);
    ZipTimes times = ZipEntryTimes(extra);
    const std::string marked = ExtraField(archive, slot, kTimestampField, ZIP_FL_CENTRAL);
    constexpr std::size_t kFlagsAt = 4;
    const bool hasMore = marked.size() > kFlagsAt && (marked[kFlagsAt] & kTimesInLocalHeader) != 0;
    if (!hasMore || isNew)
        return times;
    const ZipTimes local = ZipEntryTimes(ExtraField(archive, slot, kTimestampField, ZIP_FL_LOCAL));
    times.lastAccess = local.lastAccess ? local.lastAccess : times.lastAccess;
    times.creation = local.creation ? local.creation : times.creation;
    return times;
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

bool DescribeZipSlot(zip_t* archive, zip_uint64_t slot, bool isNew, ZipEntry& entry)
{
    zip_stat_t status;
    if (zip_stat_index(archive, slot, 0, &status) != 0)
        return false;
    const Attributes attributes = AttributesOf(archive, slot);
    entry = ZipEntry();
    entry.isNew = isNew;
    entry.name = ZipSlotName(archive, slot);
    entry.kind = ZipKindOf(entry.name, attributes.value);
    entry.attributes = SystemAttributes(attributes, entry.kind == ZipEntryKind::Folder);
    entry.compressedSize = (status.valid & ZIP_STAT_COMP_SIZE) != 0 ? status.comp_size : 0;
    entry.size = (status.valid & ZIP_STAT_SIZE) != 0 ? status.size : 0;
    entry.checksum = (status.valid & ZIP_STAT_CRC) != 0 ? status.crc : 0;
    entry.method = status.comp_method;
    entry.encryption = EncryptionOf(status.encryption_method);
    entry.times = TimesOf(archive, slot, isNew);
    if (!entry.times.lastWrite && (status.valid & ZIP_STAT_MTIME) != 0)
        entry.times.lastWrite = status.mtime;
    return true;
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
