#pragma once

#include "objects/LastFailure.h"
#include "text/FailureRecord.h"

#include <new>
#include <utility>

// How operations that answer false, null or a number leave the reason: see objects/LastFailure.h, and text/FailureRecord.h for
// what all of these functions have in common.

namespace tev
{
/// A system code; the failure of memory and a cancelled call are kinds of their own.
bool NoteSystemError(const char* operation, unsigned systemError, const wchar_t* path = nullptr) noexcept;
/// What the system said last.
bool NoteLastError(const char* operation, const wchar_t* path = nullptr) noexcept;
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
} // namespace tev
