// How failures reach a program: as pointers to exceptions, which the catcher owns, or as an answer with a reason for the
// asking. Both say in words what happened.

#include "files/CXFile.h"
#include "objects/CXFileException.h"
#include "objects/LastFailure.h"
#include "settings/CCustomData.h"

#include <cstdio>

namespace
{
void Print(const CXTString<wchar_t>& text)
{
    std::printf("%s\n", CXTString<char>(text).GetConstBuffer());
}

bool LoadSettings(CCustomData& settings)
{
    if (settings.LoadFromPrefs(L"no/such/file.prefs", 1, 2, false))
        return true;
    Print(XLastFailure().GetText());
    return false;
}
} // namespace

int main()
{
    try
    {
        CXFile file(L"no/such/file.obj", CXFile::modeRead);
        return 1;
    }
    catch (CXFileException* e)
    {
        const bool missing = e->GetCause() == fileNotFound || e->GetCause() == fileBadPath;
        Print(XGetExceptionText(e));
        e->Delete();
        if (!missing)
            return 1;
    }

    // Open never throws: it returns false with the cause.
    CXFile file;
    CXFileException error;
    if (file.Open(L"no/such/file.obj", CXFile::modeRead, &error) || error.GetCause() == fileNone)
        return 1;

    CCustomData settings;
    return LoadSettings(settings) || XLastFailure().GetSystemError() != 2 ? 1 : 0;
}
