#pragma once

#include "objects/CXException.h"

/// A network operation failed. One thread at a time.
class TEVTOOLS_API CXInternetException : public CXException
{
public:
    X_DECLARE_LIBRARY_CLASS(CXInternetException)

    /// The error is a system code, or an internet code (from 12001 on); 0 takes the calling thread's last system error.
    explicit CXInternetException(unsigned __int64 context, unsigned int error = 0);

    /// The error in words, empty for one that has no text, in the language of the environment's locale, whatever
    /// XSetLanguage has chosen. Sets the help context to 0 where a destination is given.
    virtual CXTString<wchar_t> GetErrorMessage(unsigned int* helpContext = nullptr) const;
    unsigned int GetErrorCode() const noexcept { return m_errorCode; }
    /// The value that the caller gave to its request.
    unsigned __int64 GetContext() const noexcept { return m_context; }

    [[noreturn]] static void Throw(unsigned __int64 context, unsigned int error = 0);

private:
    unsigned int m_errorCode;
    unsigned __int64 m_context;
};
