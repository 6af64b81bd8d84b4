#include "objects/CXFileException.h"

#include "objects/ThreadException.h"
#include "platform/SystemErrors.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

X_IMPLEMENT_ABSTRACT_LIBRARY_CLASS(CXFileException, CXException, xSchemaNotSerializable)

namespace
{
constexpr unsigned kTextFirstFileCause = 0xF1A0;

struct CauseRow
{
    FileExceptionType cause;
    std::array<unsigned short, 20> systemErrors; // filled up with zeros
};

// Every code that is not listed is a generic error.
constexpr CauseRow kCausesOfSystemErrors[] = {
    {fileNotFound, {2, 6, 18, 107}},
    {fileBadPath, {3, 15, 17, 34, 52, 53, 55, 67, 70, 85, 111, 123, 124, 125, 144, 154, 161, 206, 208, 267}},
    {fileTooManyOpenFiles, {4, 36, 68, 113}},
    {fileAccessDenied, {5, 12, 19, 29, 54, 58, 64, 65, 71, 80, 82, 86, 170, 183, 999}},
    {fileInvalidFile, {11, 26, 60, 66, 114, 182, 191, 193}},
    {fileRemoveCurrentDir, {16, 145}},
    {fileDirectoryFull, {62}},
    {fileBadSeek, {24, 25, 27, 30, 131, 132}},
    {fileHardIO, {20, 21, 22, 23, 57, 59, 88, 117, 995, 996, 997}},
    {fileSharingViolation, {32}},
    {fileLockViolation, {33, 108, 167}},
    {fileDiskFull, {39, 112}},
    {fileEndOfFile, {38}},
};
} // namespace

CXFileException::CXFileException(FileExceptionType cause, const CXTString<wchar_t>& fileName,
                                 const CXTString<wchar_t>& message)
    : CXException(message), m_cause(cause), m_fileName(fileName)
{
}

CXTString<wchar_t> CXFileException::GetErrorMessage() const
{
    // Meant this way round: an exception made from a system error carries no message and reports no text.
    return m_message.IsEmpty() ? m_message : GetCauseMessage();
}

CXTString<wchar_t> CXFileException::GetCauseMessage() const
{
    return FormatFileMessage(kTextFirstFileCause + m_cause, m_fileName);
}

void CXFileException::Throw(FileExceptionType cause, const CXTString<wchar_t>& fileName,
                            const CXTString<wchar_t>& message)
{
    XThrow<CXFileException>(cause, fileName, message);
}

void CXFileException::ThrowOsError(FileExceptionType cause, const CXTString<wchar_t>& fileName, CXFileException* out)
{
    const unsigned systemError = tev::platform::LastSystemError();
    const FileExceptionType mapped = OsErrorToException(systemError);
    Report(mapped != fileNone ? mapped : cause, systemError, fileName, out);
}

void CXFileException::ThrowErrno(FileExceptionType cause, int errnoValue, const CXTString<wchar_t>& fileName,
                                 CXFileException* out)
{
    Report(errnoValue != 0 ? ErrnoToException(errnoValue) : cause, 0, fileName, out);
}

void CXFileException::Report(FileExceptionType cause, unsigned int systemError, const CXTString<wchar_t>& fileName,
                             CXFileException* out)
{
    if (out == nullptr && cause == fileNone)
        return;
    CXFileException reported(cause, fileName);
    reported.m_systemError = systemError;
    if (out == nullptr)
        XThrow<CXFileException>(std::move(reported));
    out->m_cause = cause;
    out->m_systemError = systemError;
    out->m_fileName = fileName;
}

FileExceptionType CXFileException::ErrnoToException(int errnoValue) noexcept
{
    switch (errnoValue)
    {
    case EPERM:
    case EACCES:
        return fileAccessDenied;
    case ENOENT:
    case ENFILE:
        return fileNotFound;
    case EIO:
    case EINVAL:
        return fileHardIO;
    case EBADF:
        return fileInvalidFile;
    case EMFILE:
        return fileTooManyOpenFiles;
    case ENOSPC:
        return fileDiskFull;
    default:
        return fileGeneric;
    }
}

FileExceptionType CXFileException::OsErrorToException(unsigned systemError) noexcept
{
    if (systemError == 0)
        return fileNone;
    for (const CauseRow& row : kCausesOfSystemErrors)
    {
        if (std::find(row.systemErrors.begin(), row.systemErrors.end(), systemError) != row.systemErrors.end())
            return row.cause;
    }
    return fileGeneric;
}
