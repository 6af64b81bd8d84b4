// Step 4: a model is saved in the program's own format, and loaded again.
// usage: step4 [FOLDER]

#include "examples/tutorial/Model.h"

#include <cstdio>

int main(int argumentCount, char** arguments)
{
    InitFerngateApplication();
    try
    {
        CModel model;
        model.Read(CPathString(argumentCount > 1 ? arguments[1] : ".") / L"pawn.obj");
        SaveModel(model, L"pawn.scene");
        const std::unique_ptr<CModel> loaded = LoadModel(L"pawn.scene");
        std::printf("%s: %zu vertices\n", CXTString<char>(loaded->m_name).GetConstBuffer(), loaded->m_vertices.size());
        return loaded->m_vertices.size() == model.m_vertices.size() ? 0 : 1;
    }
    catch (CXException* e)
    {
        std::fprintf(stderr, "%s\n", CXTString<char>(XGetExceptionText(e)).GetConstBuffer());
        e->Delete();
    }
    return 1;
}
