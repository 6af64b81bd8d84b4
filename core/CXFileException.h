#pragma once

#include "core/CXException.h"

enum FileExceptionType : unsigned int
{
    fileNone = 0,
    fileGeneric = 1,
    fileNotFound = 2,
    fileBadPath = 3,
    fileTooManyOpenFiles = 4,
    fileAccessDenied = 5,
    fileInvalidFile = 6,
    fileRemoveCurrentDir = 7,
    fileDirectoryFull = 8,
    fileBadSeek = 9,
    fileHardIO = 10,
    fileSharingViolation = 11,
    fileLockViolation = 12,
    fileDiskFull = 13,
    fileEndOfFile = 14
};

/// A file operation failed. One thread at a time.
class TEVTOOLS_API CXFileException : public CXException
{
public:
    X_DECLARE_CLASS(CXFileException)

    explicit CXFileException(FileExceptionType cause = fileNone, const CXTString<wchar_t>& fileName = {},
                             const CXTString<wchar_t>& message = {});
    ~CXFileException() override;

    virtual CXTString<wchar_t> GetErrorMessage();
    FileExceptionType GetCause() const noexcept { return m_cause; }
    const CXTString<wchar_t>& GetFileName() const noexcept { return m_fileName; }

    [[noreturn]] static void Throw(FileExceptionType cause, const CXTString<wchar_t>& fileName,
                                   const CXTString<wchar_t>& message = {});
    static void ThrowOsError(FileExceptionType cause, const CXTString<wchar_t>& fileName, CXFileException* out);
    static void ThrowErrno(FileExceptionType cause, int errnoValue, const CXTString<wchar_t>& fileName,
                           CXFileException* out);
    static FileExceptionType ErrnoToException(int errnoValue) noexcept;
    /// Cause of one of the system's error codes (2 not found, 5 access denied, 32 sharing violation, ...).
    static FileExceptionType OsErrorToException(unsigned systemError) noexcept;

private:
    FileExceptionType m_cause;
    CXTString<wchar_t> m_fileName;
};
