#pragma once

#include "objects/CXException.h"

enum ArchiveExceptionType : unsigned int
{
    archiveNone = 0,
    archiveGeneric = 1,  ///< a class that may not go through an archive, or read or written in the wrong direction
    archiveReadOnly = 2, ///< written to while loading
    archiveEndOfFile = 3,
    archiveWriteOnly = 4, ///< read from while storing
    archiveBadIndex = 5,  ///< a reference to an object or class that is not there
    archiveBadClass = 6,  ///< an unknown class, or not the one that was asked for
    archiveBadSchema = 7, ///< written by another version of a class that cannot read other versions
    archiveBufferFull = 8 ///< one read needs more than the buffer holds
};

/// Reading or writing an archive failed. One thread at a time.
class TEVTOOLS_API CXArchiveException : public CXException
{
public:
    X_DECLARE_LIBRARY_CLASS(CXArchiveException)

    explicit CXArchiveException(ArchiveExceptionType cause = archiveNone, const CXTString<wchar_t>& fileName = {});

    /// The cause and the file in words.
    virtual CXTString<wchar_t> GetErrorMessage() const;
    ArchiveExceptionType GetCause() const noexcept { return m_cause; }
    const CXTString<wchar_t>& GetFileName() const noexcept { return m_fileName; }

    [[noreturn]] static void Throw(ArchiveExceptionType cause, const CXTString<wchar_t>& fileName = {});

private:
    ArchiveExceptionType m_cause;
    CXTString<wchar_t> m_fileName;
};
