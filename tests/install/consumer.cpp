#include "objects/CXException.h"

#include <TevTools.h>
#include <services/StdFormatter.h>

// Uses the library as a program outside this tree does: through the installed headers and exported symbols alone.
int main()
{
    CXTString<wchar_t> text;
    text.Format(L"%d parts", 12);
    try
    {
        CXFileException::Throw(fileNotFound, text);
    }
    catch (CXException* e)
    {
        const bool caught = e->IsKindOf(CXFileException::GetThisRuntimeClassDescriptor());
        e->Delete();
        return caught && text == L"12 parts" ? 0 : 1;
    }
}
