#pragma once

#include "objects/CXFileException.h"
#include "text/CXTString.h"
#include "text/FailureKind.h"
#include "text/Language.h"

#include <cstddef>

// Why something failed, in words, and for operations that answer false, null or a number.

namespace tev
{
class FailureRecord;
}

/// Why an operation failed. A value.
class TEVTOOLS_API XFailure
{
public:
    /// How many characters of a path are kept; of a longer one the first.
    static constexpr std::size_t kPathRoom = 400;

    XFailure() noexcept;

    /// Whether there is a failure.
    explicit operator bool() const noexcept { return m_kind != XFailureKind::kNone; }
    XFailureKind GetKind() const noexcept { return m_kind; }
    /// The operation as a program calls it, "CXFile::Open"; empty when there is no failure.
    const char* GetOperation() const noexcept { return m_operation; }
    /// The system's code (2 not found, 5 access denied, 112 disk full, ...), 0 where the system had no part or none is known.
    unsigned int GetSystemError() const noexcept { return m_systemError; }
    /// The cause as CXFileException has it, fileNone for what is no matter of files.
    FileExceptionType GetCause() const noexcept { return m_cause; }
    /// The file, folder or key; empty where there is none, and where many hundred other threads have failed since.
    const wchar_t* GetPath() const noexcept { return m_path; }
    /// Whether the path is longer than what is kept.
    bool IsPathCut() const noexcept { return m_isPathCut; }
    /// A sentence with all of this, in the language of message texts or the given one.
    CXTString<wchar_t> GetText() const { return GetText(XGetLanguage()); }
    CXTString<wchar_t> GetText(XLanguage language) const;
    /// The same for a message that begins with the path.
    CXTString<wchar_t> GetTextWithoutPath() const;

private:
    friend class tev::FailureRecord;

    CXTString<wchar_t> TextAbout(const CXTString<wchar_t>& name, const CXTString<wchar_t>& detail,
                                 XLanguage language) const;

    const char* m_operation = "";
    unsigned int m_systemError = 0;
    unsigned int m_textId = 0;
    FileExceptionType m_cause = fileNone;
    XFailureKind m_kind = XFailureKind::kNone;
    bool m_isPathCut = false;
    wchar_t m_path[kPathRoom + 1];
};

/// Why the last operation of the calling thread failed that answered false, null or a number for a failure of the system,
/// of data or of memory, or a refused argument. What succeeds leaves it as it is, and so do queries and look-ups that find
/// nothing; what throws says the reason itself. A child made by fork has the record of the thread that forked.
/// Recording allocates nothing.
TEVTOOLS_API XFailure XLastFailure() noexcept;
/// Forgets the calling thread's record, to tell a new one from it.
TEVTOOLS_API void XClearLastFailure() noexcept;

/// A sentence with all that the exception says: cause, file, error code, message, and the class of one that is not the
/// library's. Empty for null.
TEVTOOLS_API CXTString<wchar_t> XGetExceptionText(const CXException* exception);
TEVTOOLS_API CXTString<wchar_t> XGetExceptionText(const CXException* exception, XLanguage language);

/// What one of the system's codes means where the library gives it itself; the code as a number where it has no text.
TEVTOOLS_API CXTString<wchar_t> XGetSystemErrorText(unsigned int systemError, XLanguage language = XGetLanguage());
