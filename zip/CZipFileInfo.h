#pragma once

#include "base/TevTypes.h"
#include "text/CXTString.h"
#include "zip/ZipTypes.h"

namespace tev
{
class ZipArchive;
}

/// The header of an archive's entry. A value: one thread at a time.
class TEVTOOLS_API CZipFileInfo
{
public:
    CZipFileInfo() = default;
    CZipFileInfo(const CZipFileInfo&) = default;
    CZipFileInfo(CZipFileInfo&&) = default;
    CZipFileInfo& operator=(const CZipFileInfo&) = default;
    CZipFileInfo& operator=(CZipFileInfo&&) = default;
    virtual ~CZipFileInfo();

    /// With the folders, separated by '/', as stored in the archive: it may lead anywhere. A folder's name ends with
    /// '/'.
    CXTString<wchar_t> GetFileName() const { return m_fileName; }
    bool IsDirectory() const noexcept { return (m_attributes & kDirectoryAttribute) != 0; }

    // Seconds since 1970-01-01 UTC; 0 where the archive does not store it. Most archives store the last change only,
    // many to two seconds and in the local time of the system that made them.

    __int64 GetCreationTime() const noexcept { return m_creationTime; }
    __int64 GetLastAccessTime() const noexcept { return m_lastAccessTime; }
    __int64 GetModifiedTime() const noexcept { return m_modifiedTime; }

    /// 0 for an entry that was added and is not saved yet.
    unsigned __int64 GetCompressedSize() const noexcept { return m_compressedSize; }
    /// As declared in the header, which may be wrong.
    unsigned __int64 GetUncompressedSize() const noexcept { return m_uncompressedSize; }

    /// 0x1 read-only, 0x2 hidden, 0x4 system, 0x10 folder, 0x20 to be archived.
    unsigned int GetAttributes() const noexcept { return m_attributes; }
    /// CRC-32 of the contents; 0 for encrypted entries that do not store it.
    unsigned int GetChecksum() const noexcept { return m_checksum; }
    /// 0 stored, 8 deflated, 12 bzip2, ...
    unsigned int GetMethod() const noexcept { return m_method; }
    XZipEncryption GetEncryption() const noexcept { return m_encryption; }

private:
    friend class tev::ZipArchive;
    static constexpr unsigned int kDirectoryAttribute = 0x10;

    CXTString<wchar_t> m_fileName;
    unsigned int m_attributes = 0;
    __int64 m_creationTime = 0;
    __int64 m_lastAccessTime = 0;
    __int64 m_modifiedTime = 0;
    unsigned __int64 m_compressedSize = 0;
    unsigned __int64 m_uncompressedSize = 0;
    unsigned int m_checksum = 0;
    unsigned int m_method = 0;
    XZipEncryption m_encryption = XZipEncryption::kNone;
};
