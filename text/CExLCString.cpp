#include "text/CExLCString.h"

CExLCString::CExLCString(const CXTString<wchar_t>& text) : CXTString<wchar_t>(text)
{
    MakeLower();
}

CExLCString& CExLCString::operator=(const CXTString<wchar_t>& text)
{
    CXTString<wchar_t>::operator=(text);
    MakeLower();
    return *this;
}

int CExLCString::Find(const CXTString<wchar_t>& text, int start) const
{
    return CXTString<wchar_t>::Find(CExLCString(text).GetConstBuffer(), start);
}
