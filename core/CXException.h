#pragma once

#include "core/CXObject.h"
#include "core/CXTString.h"

/// Base of everything that the library throws. Exceptions are thrown as pointers: the throw site creates the object,
/// records it as the thread's pending exception and throws it; who catches it owns it and ends with Delete().
/// Each class has a static Throw that does the three steps.
/// One thread at a time.
class TEVTOOLS_API CXException : public CXObject
{
public:
    X_DECLARE_CLASS(CXException)

    CXException() = default;
    explicit CXException(const CXTString<wchar_t>& message) : m_message(message) {}
    CXException(const CXException&) = default;
    CXException(CXException&&) = default;
    CXException& operator=(const CXException&) = default;
    CXException& operator=(CXException&&) = default;
    ~CXException() override;

    void Serialize(CXArchive& archive) override;
    /// Tells the user; false when there is nothing to show. Always false: it asks the base's message, which is empty.
    virtual bool ReportError(unsigned int type);
    /// Always empty, whatever message the exception carries; the subclasses that have texts answer with them.
    CXTString<wchar_t> GetErrorMessage() const { return {}; }
    /// The message the exception was made with.
    const CXTString<wchar_t>& GetMessageText() const noexcept { return m_message; }

    /// Ends the exception; when it is the thread's pending one, that record is cleared too.
    void Delete() { Delete(this); }
    /// As the member; null is ignored.
    static void Delete(CXException* exception);

protected:
    CXTString<wchar_t> m_message;
};
