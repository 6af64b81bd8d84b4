#pragma once

#include "objects/CXObject.h"
#include "text/CXTString.h"

/// Base of everything that the library throws. Exceptions are thrown as pointers: the throw site creates the object,
/// records it as the thread's pending exception and throws it; the catcher owns it and releases it with Delete().
/// XThrow does the three steps (objects/ThreadException.h), and so does the static Throw of each class of the library.
/// One thread at a time.
class TEVTOOLS_API CXException : public CXObject
{
public:
    X_DECLARE_LIBRARY_CLASS(CXException)

    CXException() = default;
    explicit CXException(const CXTString<wchar_t>& message) : m_message(message) {}
    CXException(const CXException&) = default;
    CXException(CXException&&) = default;
    CXException& operator=(const CXException&) = default;
    CXException& operator=(CXException&&) = default;
    /// Clears the record, too, when the exception is a thread's pending one.
    ~CXException() override;

    /// Shows the base's message to the user; false when there is nothing to show. Always false: that message is empty.
    virtual bool ReportError(unsigned int type);
    /// Always empty, whatever message the exception carries; the subclasses that have texts return them.
    CXTString<wchar_t> GetErrorMessage() const { return {}; }
    /// The message the exception was made with.
    const CXTString<wchar_t>& GetMessageText() const noexcept { return m_message; }

    /// Deletes the exception.
    void Delete() { delete this; }
    /// As the member; null is ignored.
    static void Delete(CXException* exception) { delete exception; }

protected:
    /// A message text with the file's name inserted, or the text for a file without a name.
    static CXTString<wchar_t> FormatFileMessage(unsigned messageId, const CXTString<wchar_t>& fileName);

    CXTString<wchar_t> m_message;
};

/// A memory allocation failed. One thread at a time.
class TEVTOOLS_API CXMemoryException : public CXException
{
public:
    X_DECLARE_LIBRARY_CLASS(CXMemoryException)

    using CXException::CXException;

    [[noreturn]] static void Throw(const CXTString<wchar_t>& message = {});
};

/// An operation was called with arguments, or on an object, that it cannot work with. One thread at a time.
class TEVTOOLS_API CXInvalidArgException : public CXException
{
public:
    X_DECLARE_LIBRARY_CLASS(CXInvalidArgException)

    using CXException::CXException;

    [[noreturn]] static void Throw(const CXTString<wchar_t>& message = {});
};

/// The user cancelled the operation. One thread at a time.
class TEVTOOLS_API CXUserException : public CXException
{
public:
    X_DECLARE_LIBRARY_CLASS(CXUserException)

    using CXException::CXException;

    [[noreturn]] static void Throw(const CXTString<wchar_t>& message = {});
};
