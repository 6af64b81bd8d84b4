#include "objects/CXArchiveException.h"

#include "objects/ThreadException.h"

X_IMPLEMENT_ABSTRACT_LIBRARY_CLASS(CXArchiveException, CXException, xSchemaNotSerializable)

namespace
{
constexpr unsigned kTextFirstArchiveCause = 0xF1B0;
} // namespace

CXArchiveException::CXArchiveException(ArchiveExceptionType cause, const CXTString<wchar_t>& fileName)
    : m_cause(cause), m_fileName(fileName)
{
}

CXTString<wchar_t> CXArchiveException::GetErrorMessage() const
{
    return FormatFileMessage(kTextFirstArchiveCause + m_cause, m_fileName);
}

void CXArchiveException::Throw(ArchiveExceptionType cause, const CXTString<wchar_t>& fileName)
{
    XThrow<CXArchiveException>(cause, fileName);
}
