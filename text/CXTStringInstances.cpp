#include "text/CXTStringBuffer.h"
#include "text/CXTStringEdit.h"
#include "text/CXTStringFormat.h"

template class CXTString<char>;
template class CXTString<wchar_t>;

CXTString<wchar_t> CleanText(const CXTString<wchar_t>& text)
{
    CXTString<wchar_t> result(text);
    result.Remove(L'&');
    return result;
}

void CapitalizeText(CXTString<wchar_t>& text)
{
    text.MakeLower();
    text.MakeUpper(1);
}
