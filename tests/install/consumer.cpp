#include "objects/CXException.h"

#include <TevTools.h>
#include <cstring>
#include <services/StdFormatter.h>
#include <string>

// What the library hides, a program may define: it is hidden in the static library, too.
namespace tev::platform
{
std::string FindDumpHelper();
std::string FindDumpHelper()
{
    return {};
}
} // namespace tev::platform

// Uses the library as a program outside this tree does: through the installed headers and exported symbols alone.
int main()
{
    if (XGetVersion() != TEVTOOLS_VERSION || std::strcmp(TEVTOOLS_VERSION_TEXT, WANTED_VERSION) != 0)
        return 2;
    // Classes that the program names nowhere are created by name, as when an archive is read.
    if (CXRuntimeClass::FindRuntimeClass("CXDoubleElements") == nullptr)
        return 3;
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
