#pragma once

#include "text/FailureKind.h"

#include <cstddef>

// The thread's record of its last failure: see objects/LastFailure.h, and objects/FailureNote.h for what notes system errors
// and exceptions. Each function that notes replaces the calling thread's record, allocates nothing, leaves errno alone and
// returns false.

namespace tev
{
struct FailureNote
{
    const char* m_operation; ///< a literal of the library: a plug-in's would go with the plug-in
    XFailureKind m_kind;
    unsigned m_systemError = 0;
    unsigned m_cause = 0;  ///< a FileExceptionType
    unsigned m_textId = 0; ///< a message text of its own
};

bool NoteFailure(const FailureNote& note, const wchar_t* path = nullptr) noexcept;
bool NoteBadData(const char* operation, const wchar_t* path = nullptr) noexcept;
bool NoteNoMemory(const char* operation, const wchar_t* path = nullptr) noexcept;
bool NoteBadArgument(const char* operation, const wchar_t* path = nullptr) noexcept;

struct RecordedFailure
{
    FailureNote m_note;
    bool m_isPathCut;
};

/// How many characters of a path are kept; of a longer one the first.
constexpr std::size_t kFailurePathRoom = 400;

/// `path` has room for these and a terminator.
RecordedFailure ReadFailure(wchar_t* path) noexcept;
void ClearFailure() noexcept;

/// While it exists, nothing is noted on this thread: for attempts whose failure is none of the caller's.
class FailuresUnnoted
{
public:
    FailuresUnnoted() noexcept;
    ~FailuresUnnoted();
    FailuresUnnoted(const FailuresUnnoted&) = delete;
    FailuresUnnoted& operator=(const FailuresUnnoted&) = delete;
};

/// While it exists, what the parts of an operation note is set aside: at its end the thread's record is as it was before,
/// or, after Fail, what was noted last, under the name of the whole operation.
class FailuresOfParts
{
public:
    FailuresOfParts() noexcept;
    ~FailuresOfParts();
    FailuresOfParts(const FailuresOfParts&) = delete;
    FailuresOfParts& operator=(const FailuresOfParts&) = delete;

    /// `kind` and `path` are for a part that has noted nothing.
    bool Fail(const char* operation, XFailureKind kind, const wchar_t* path) noexcept;

private:
    RecordedFailure m_before;
    bool m_isFailed = false;
    wchar_t m_path[kFailurePathRoom + 1]; ///< of the record before
};
} // namespace tev
