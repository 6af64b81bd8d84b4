// How failures reach a program: as pointers to exceptions, which the catcher owns.

#include "files/CXFile.h"
#include "objects/CXFileException.h"

#include <cstdio>

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
        std::printf("cause %u: %s\n", static_cast<unsigned>(e->GetCause()),
                    CXTString<char>(e->GetFileName()).GetConstBuffer());
        e->Delete();
        if (!missing)
            return 1;
    }

    // Open never throws: it returns false with the cause.
    CXFile file;
    CXFileException error;
    if (file.Open(L"no/such/file.obj", CXFile::modeRead, &error))
        return 1;
    return error.GetCause() == fileNone ? 1 : 0;
}
