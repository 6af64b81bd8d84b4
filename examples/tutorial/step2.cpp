// Step 2: it knows its files by their names, and reads one.
// usage: step2 [FOLDER]

#include <TevTools.h>

#include <cstdio>

namespace
{
constexpr unsigned kModels = XFourCharacterCode("MODL");

unsigned CountVertices(const CPathString& path)
{
    CStdioFileEx file(path, CXFile::modeRead | CXFile::typeText);
    CXTString<wchar_t> line;
    unsigned count = 0;
    while (file.ReadString(line))
    {
        float x = 0;
        float y = 0;
        float z = 0;
        count += line.ScanS(L"v %f %f %f", &x, &y, &z) == 3 ? 1 : 0;
    }
    return count;
}
} // namespace

int main(int argumentCount, char** arguments)
{
    InitFerngateApplication();
    const CPathString path = CPathString(argumentCount > 1 ? arguments[1] : ".") / L"pawn.obj";
    CFileExt models(L"Models", L".obj", kModels, xFile3DScene | 0x1, kModels);
    fileRegisterFile(models);
    if (fileGetClass(path) != kModels)
        return 1;
    try
    {
        const unsigned count = CountVertices(path);
        std::printf("%u vertices\n", count);
        return count == 74 ? 0 : 1;
    }
    catch (CXFileException* e)
    {
        std::fprintf(stderr, "%s\n", CXTString<char>(XGetExceptionText(e)).GetConstBuffer());
        e->Delete();
    }
    return 1;
}
