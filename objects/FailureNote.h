#pragma once

#include "objects/LastFailure.h"

#include <new>
#include <utility>

// How operations that answer false, null or a number leave the reason: see objects/LastFailure.h. Each function replaces the
// calling thread's record, allocates nothing, leaves errno alone and returns false. `operation` is a literal.

namespace tev
{
struct FailureNote
{
    const char* m_operation;
    XFailureKind m_kind;
    unsigned m_systemError = 0;
    FileExceptionType m_cause = fileNone;
    unsigned m_textId = 0; ///< a message text of its own
};

bool NoteFailure(const FailureNote& note, const wchar_t* path = nullptr) noexcept;
/// A system code; the failure of memory and a cancelled call are kinds of their own.
bool NoteSystemError(const char* operation, unsigned systemError, const wchar_t* path = nullptr) noexcept;
/// What the system said last.
bool NoteLastError(const char* operation, const wchar_t* path = nullptr) noexcept;
bool NoteBadData(const char* operation, const wchar_t* path = nullptr) noexcept;
bool NoteNoMemory(const char* operation, const wchar_t* path = nullptr) noexcept;
bool NoteBadArgument(const char* operation, const wchar_t* path = nullptr) noexcept;
/// What an operation swallows. The exception's own file comes before `path`.
bool NoteException(const char* operation, const CXException& exception, const wchar_t* path = nullptr) noexcept;
/// The result of `work`, or `failure` with a note where it throws an exception of the library or std::bad_alloc.
template <class RESULT, class WORK>
RESULT ResultOrNote(const char* operation, const wchar_t* path, RESULT failure, WORK&& work)
{
    try
    {
        return work();
    }
    catch (CXException* exception)
    {
        NoteException(operation, *exception, path);
        exception->Delete();
    }
    catch (const std::bad_alloc&)
    {
        NoteNoMemory(operation, path);
    }
    return failure;
}

/// While it exists, nothing is noted on this thread: for attempts whose failure is none of the caller's.
class FailuresUnnoted
{
public:
    FailuresUnnoted() noexcept;
    ~FailuresUnnoted();
    FailuresUnnoted(const FailuresUnnoted&) = delete;
    FailuresUnnoted& operator=(const FailuresUnnoted&) = delete;
};
} // namespace tev
