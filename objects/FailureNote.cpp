#include "objects/FailureNote.h"

#include "objects/CXArchiveException.h"
#include "objects/CXInternetException.h"
#include "platform/SystemErrors.h"
#include "text/MessageTexts.h"

static_assert(tev::kFailurePathRoom == XFailure::kPathRoom);

class tev::FailureRecord
{
public:
    static XFailure Read() noexcept
    {
        XFailure failure;
        const RecordedFailure recorded = ReadFailure(failure.m_path);
        failure.m_operation = recorded.m_note.m_operation;
        failure.m_kind = recorded.m_note.m_kind;
        failure.m_systemError = recorded.m_note.m_systemError;
        failure.m_cause = static_cast<FileExceptionType>(recorded.m_note.m_cause);
        failure.m_textId = recorded.m_note.m_textId;
        failure.m_isPathCut = recorded.m_isPathCut;
        return failure;
    }
};

XFailure::XFailure() noexcept
{
    m_path[0] = L'\0';
}

XFailure XLastFailure() noexcept
{
    return tev::FailureRecord::Read();
}

void XClearLastFailure() noexcept
{
    tev::ClearFailure();
}

bool tev::NoteSystemError(const char* operation, unsigned systemError, const wchar_t* path) noexcept
{
    const XFailureKind kind = systemError == platform::kNotEnoughMemory ? XFailureKind::kMemory
                              : systemError == platform::kInvalidData   ? XFailureKind::kData
                              : systemError == platform::kBadParameter  ? XFailureKind::kArgument
                                                                        : XFailureKind::kSystem;
    const FileExceptionType cause = CXFileException::OsErrorToException(systemError);
    return NoteFailure({operation, kind, systemError, kind == XFailureKind::kSystem ? cause : fileNone}, path);
}

bool tev::NoteLastError(const char* operation, const wchar_t* path) noexcept
{
    return NoteSystemError(operation, platform::LastSystemError(), path);
}

bool tev::NoteException(const char* operation, const CXException& exception, const wchar_t* path) noexcept
{
    FailureNote note{operation, XFailureKind::kSystem};
    if (const auto* file = dynamic_cast<const CXFileException*>(&exception))
    {
        note.m_cause = file->GetCause();
        note.m_systemError = file->GetSystemError();
        if (note.m_systemError == 0 && (note.m_cause == fileInvalidFile || note.m_cause == fileEndOfFile))
            note.m_kind = XFailureKind::kData;
        note.m_textId = kTextFileCause + note.m_cause;
        path = file->GetFileName().IsEmpty() ? path : file->GetFileName().GetConstBuffer();
    }
    else if (const auto* archive = dynamic_cast<const CXArchiveException*>(&exception))
    {
        note.m_kind = XFailureKind::kData;
        note.m_textId = kTextArchiveCause + archive->GetCause();
        path = archive->GetFileName().IsEmpty() ? path : archive->GetFileName().GetConstBuffer();
    }
    else if (const auto* internet = dynamic_cast<const CXInternetException*>(&exception))
        note.m_systemError = internet->GetErrorCode();
    else if (dynamic_cast<const CXMemoryException*>(&exception) != nullptr)
        return NoteNoMemory(operation, path);
    else if (dynamic_cast<const CXInvalidArgException*>(&exception) != nullptr)
        note.m_kind = XFailureKind::kArgument;
    else if (dynamic_cast<const CXUserException*>(&exception) != nullptr)
        note.m_kind = XFailureKind::kCancelled;
    else
        note.m_textId = kTextThrown;
    return NoteFailure(note, path);
}
