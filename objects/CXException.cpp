#include "objects/CXException.h"

#include "objects/ThreadException.h"

namespace
{
constexpr unsigned kTextUnnamedFile = 0xF006;
} // namespace

X_IMPLEMENT_ABSTRACT_LIBRARY_CLASS(CXException, CXObject, xSchemaNotSerializable)
X_IMPLEMENT_ABSTRACT_LIBRARY_CLASS(CXMemoryException, CXException, xSchemaNotSerializable)
X_IMPLEMENT_ABSTRACT_LIBRARY_CLASS(CXInvalidArgException, CXException, xSchemaNotSerializable)
X_IMPLEMENT_ABSTRACT_LIBRARY_CLASS(CXUserException, CXException, xSchemaNotSerializable)

CXException::~CXException()
{
    tev::ForgetException(this);
}

bool CXException::ReportError(unsigned int)
{
    return false;
}

CXTString<wchar_t> CXException::FormatFileMessage(unsigned messageId, const CXTString<wchar_t>& fileName)
{
    CXTString<wchar_t> name = fileName;
    if (name.IsEmpty())
        name.LoadString(kTextUnnamedFile);
    CXTString<wchar_t> message;
    message.Format(messageId, name.GetConstBuffer());
    return message;
}

void CXMemoryException::Throw(const CXTString<wchar_t>& message)
{
    XThrow<CXMemoryException>(message);
}

void CXInvalidArgException::Throw(const CXTString<wchar_t>& message)
{
    XThrow<CXInvalidArgException>(message);
}

void CXUserException::Throw(const CXTString<wchar_t>& message)
{
    XThrow<CXUserException>(message);
}
