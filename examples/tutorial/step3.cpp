// Step 3: what is wrong with a file is said in words. The reader is a class of its own from here on.
// usage: step3 [FOLDER]

#include "examples/tutorial/Model.h"

#include <cstdio>

namespace
{
CXTString<wchar_t> WhyNot(const CPathString& path)
{
    CXTString<wchar_t> reason;
    try
    {
        CModel().Read(path);
    }
    catch (CModelException* e)
    {
        reason.Format(L"line %u is no vertex", e->GetLine());
        e->Delete();
    }
    catch (CXException* e) // what files say
    {
        reason = XGetExceptionText(e);
        e->Delete();
    }
    return reason;
}
} // namespace

int main(int argumentCount, char** arguments)
{
    InitFerngateApplication();
    const CPathString folder(argumentCount > 1 ? arguments[1] : ".");
    CStdioFileEx bad(L"bad.obj", CXFile::modeCreate | CXFile::modeWrite);
    bad.WriteString(L"v 1 2 3\nv 1 two 3\n");
    bad.Close();
    for (const CPathString& path : {folder / L"pawn.obj", CPathString(L"bad.obj"), folder / L"gone.obj"})
        std::printf("%s: %s\n", CXTString<char>(path).GetConstBuffer(), CXTString<char>(WhyNot(path)).GetConstBuffer());
    return WhyNot(folder / L"pawn.obj").IsEmpty() && WhyNot(L"bad.obj") == L"line 2 is no vertex" ? 0 : 1;
}
