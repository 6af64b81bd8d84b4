#pragma once

#include "text/CXTString.h"

/// Which file a path leads to, its size and when it was last written: by two of them a program notices that a file was changed
/// meanwhile, or that the path leads to another one. A value.
struct XFileStamp
{
    unsigned __int64 m_device =
        0; ///< with m_number the identity, which another file may have when this one is deleted and closed
    unsigned __int64 m_number = 0;
    unsigned __int64 m_size = 0;    ///< bytes, as the file system has it
    __int64 m_lastWrite = 0;        ///< seconds since 1970-01-01 UTC, rounded down
    unsigned int m_nanoseconds = 0; ///< since that second; many systems count in steps of some milliseconds

    bool IsSameFile(const XFileStamp& other) const noexcept
    {
        return m_device == other.m_device && m_number == other.m_number;
    }
    bool operator==(const XFileStamp& other) const noexcept
    {
        return IsSameFile(other) && m_size == other.m_size && m_lastWrite == other.m_lastWrite &&
               m_nanoseconds == other.m_nanoseconds;
    }
    bool operator!=(const XFileStamp& other) const noexcept { return !(*this == other); }
};

/// Links are followed. False, with the stamp unchanged, where nothing is at the path; XLastFailure() says why.
/// Safe from several threads at once.
[[nodiscard]] TEVTOOLS_API bool XGetFileStamp(const CXTString<wchar_t>& path, XFileStamp& stamp);
