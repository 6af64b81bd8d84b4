#pragma once

#include "base/TevTypes.h"
#include "text/CXTString.h"

// What extractions of compressed archives share. Values: one thread at a time.

/// What one extraction may write at most, as a protection from archives that were made to fill the disk.
struct CXExtractionLimits
{
    /// Bytes of all files together; 1 TiB by default.
    unsigned __int64 m_totalBytes = 1ull << 40;
    /// Bytes for each compressed byte, of an entry or of a file that is no archive. Ordinary files stay far below the
    /// default.
    unsigned __int64 m_ratio = 100'000;

    // Files from untrusted sources deserve lower limits: see docs/archives.md.

    bool Allows(unsigned __int64 size, unsigned __int64 compressedSize) const noexcept
    {
        if (m_ratio == 0)
            return size == 0;
        const unsigned __int64 needed = size / m_ratio + (size % m_ratio != 0 ? 1 : 0);
        return size <= m_totalBytes && needed <= compressedSize;
    }
};

/// Why an extraction returned false.
enum class CXExtractionFailure : unsigned char
{
    kNone,
    kNotFound,    ///< there is no such file
    kNoArchive,   ///< the file is not of the expected kind, or cannot be read
    kDamaged,     ///< or truncated
    kNothingInIt, ///< no file was extracted; see the skipped entries
    kTooLarge,    ///< for the limits
    kNotWritable, ///< the destination cannot be written to, or the disk is full
    kNoMemory,
    kCancelled,
    kTooManyOpenFiles ///< the process, or the system, has no descriptor left
};

/// What is wrong with a gzip or a Zstandard file that is kDamaged.
enum class CXStreamDamage : unsigned char
{
    kNone,
    kTruncated,
    kHeader,
    kMethod, ///< of compression, which is not known
    kData,
    kChecksum,
    kLength ///< the contents are not as long as the end of the file says
};

/// Why an entry of an archive was left out.
enum class CXSkipReason : unsigned char
{
    kDamaged,    ///< its data or its header; also a wrong password that only the data reveals
    kUnsafeName, ///< leading upwards, no text, too long, ...
    kNameClash, ///< an earlier entry has that name, also in other case where the file system ignores it, or is a folder of that name
    kSpecialFile,   ///< a symbolic link, a device, ...
    kWrongPassword, ///< or none
    kUnsupported,   ///< a method of compression or encryption
    kTooLarge,      ///< for the limits
    kUnreadable,    ///< reading the archive failed there
    kNotWritable    ///< the existing file or folder cannot be replaced, or the path leads through a symbolic link
};

/// An entry of an archive that was not extracted.
struct CXSkippedEntry
{
    CXTString<wchar_t> m_name; ///< as in the archive; empty where its header is damaged
    CXSkipReason m_reason = CXSkipReason::kDamaged;
};
