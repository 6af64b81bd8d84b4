#pragma once

#include "objects/CXException.h"

enum FileExceptionType : unsigned int
{
    fileNone = 0,
    fileGeneric = 1, ///< any error that is not one of the others
    fileNotFound = 2,
    fileBadPath = 3, ///< path not found or invalid
    fileTooManyOpenFiles = 4,
    fileAccessDenied = 5,
    fileInvalidFile = 6, ///< invalid handle or file
    fileRemoveCurrentDir = 7,
    fileDirectoryFull = 8,
    fileBadSeek = 9,
    fileHardIO = 10, ///< hardware or input and output error
    fileSharingViolation = 11,
    fileLockViolation = 12,
    fileDiskFull = 13,
    fileEndOfFile = 14
};

/// A file operation failed. One thread at a time.
class TEVTOOLS_API CXFileException : public CXException
{
public:
    X_DECLARE_LIBRARY_CLASS(CXFileException)

    explicit CXFileException(FileExceptionType cause = fileNone, const CXTString<wchar_t>& fileName = {},
                             const CXTString<wchar_t>& message = {});

    /// The cause and the file in words when the exception was made with a message, empty when it was made without one.
    virtual CXTString<wchar_t> GetErrorMessage() const;
    /// The cause and the file in words, whether or not the exception was made with a message.
    CXTString<wchar_t> GetCauseMessage() const;
    FileExceptionType GetCause() const noexcept { return m_cause; }
    /// The system's code (2 not found, 5 access denied, ...) that ThrowOsError found; 0 where none is known.
    unsigned int GetSystemError() const noexcept { return m_systemError; }
    const CXTString<wchar_t>& GetFileName() const noexcept { return m_fileName; }

    [[noreturn]] static void Throw(FileExceptionType cause, const CXTString<wchar_t>& fileName,
                                   const CXTString<wchar_t>& message = {});
    /// Reports the calling thread's last system error: stores cause and file name in `out`, or throws where `out` is
    /// null. `cause` is used when there was no system error; when that is fileNone too, nothing is thrown.
    static void ThrowOsError(FileExceptionType cause, const CXTString<wchar_t>& fileName, CXFileException* out);
    /// As ThrowOsError, for an errno value; 0 means no error.
    static void ThrowErrno(FileExceptionType cause, int errnoValue, const CXTString<wchar_t>& fileName,
                           CXFileException* out);
    /// Cause of an errno value; fileGeneric for one that is not known, and for 0.
    static FileExceptionType ErrnoToException(int errnoValue) noexcept;
    /// Cause of one of the system's error codes (2 not found, 5 access denied, 32 sharing violation, ...), which are
    /// finer than errno; fileNone for 0.
    static FileExceptionType OsErrorToException(unsigned systemError) noexcept;

private:
    static void Report(FileExceptionType cause, unsigned int systemError, const CXTString<wchar_t>& fileName,
                       CXFileException* out);

    FileExceptionType m_cause;
    unsigned int m_systemError = 0;
    CXTString<wchar_t> m_fileName;
};
