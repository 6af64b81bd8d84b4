#pragma once

#include "base/TevTypes.h"
#include "text/CXTString.h"

// What extractions of compressed archives share. Values: one thread at a time.

/// What one extraction may write. An archive that was made to fill the disk declares, or turns out, to be larger.
struct CXExtractionLimits
{
    /// Bytes of all files together; 1 TiB unless something else is set.
    unsigned __int64 m_totalBytes = 1ull << 40;
    /// Bytes for each compressed byte, of an entry or of a file that is no archive. No honest ZIP or gzip file comes near
    /// what stands here.
    unsigned __int64 m_ratio = 100'000;

    bool Allows(unsigned __int64 size, unsigned __int64 compressedSize) const noexcept
    {
        if (m_ratio == 0)
            return size == 0;
        const unsigned __int64 needed = size / m_ratio + (size % m_ratio != 0 ? 1 : 0);
        return size <= m_totalBytes && needed <= compressedSize;
    }
};

/// Why an extraction answered false.
enum class CXExtractionFailure : unsigned char
{
    kNone,
    kNotFound,    ///< there is no such file
    kNoArchive,   ///< the file is not of the kind that was asked for, or cannot be read
    kDamaged,     ///< or cut off
    kNothingInIt, ///< no file came out of the archive; the skipped entries tell more
    kTooLarge,    ///< for the limits
    kNotWritable, ///< the destination cannot be written to, or the disk is full
    kNoMemory,
    kCancelled
};

/// Why an entry of an archive was left out.
enum class CXSkipReason : unsigned char
{
    kDamaged,       ///< its data or its header; also a wrong password that nothing but the data gives away
    kUnsafeName,    ///< absolute, leading upwards, a device, ...
    kNameClash,     ///< an earlier entry has that name, perhaps in other cases, or has it as a folder
    kSpecialFile,   ///< a symbolic link, a device, ...
    kWrongPassword, ///< or none
    kUnsupported,   ///< a method of compression or encryption
    kTooLarge,      ///< for the limits
    kNotWritable    ///< what stands in the destination cannot be replaced, or lies behind a symbolic link
};

struct CXSkippedEntry
{
    CXTString<wchar_t> m_name; ///< as the archive has it; empty where its header is damaged
    CXSkipReason m_reason = CXSkipReason::kDamaged;
};
