// File types, wildcards, colours, and a log with levels.

#include "services/CFileNameSpec.h"
#include "services/FileTypeRegistry.h"
#include "services/FileWildcards.h"
#include "services/LogFile.h"
#include "services/StartUp.h"
#include "text/XCA2W.h"
#include "values/CRGBColor.h"

#include <cstdio>

namespace
{
void ShowTypes()
{
    CFileExt type(L"Point clouds", L".xyz|.pts", XFourCharacterCode("CLOU"), xFile3DScene | 0x1,
                  XFourCharacterCode("MYLD"));
    fileRegisterFile(type);

    const CFileNameSpec file(L"scans/Garden.XYZ", 0); // 0: the class is the one of the extension
    if (file.GetClass() == XFourCharacterCode("CLOU"))
        std::printf("%s is a point cloud\n", static_cast<const char*>(XCW2A(file.GetFileName(), xEncodingUtf8)));

    CHashTable<CXTString<wchar_t>> patterns;
    fileCleanExtensionList(L"garden, \"pts\"", false, &patterns);
    std::printf("found: %s\n", fileMatchWilcards(file, patterns) ? "yes" : "no");
}

void ShowColour()
{
    const CRGBColor orange(255, 128, 0);
    std::printf("darker: %s\n",
                static_cast<const char*>(XCW2A(orange.CreateDarken(0.25F).GetRGBString(), xEncodingUtf8)));
}

void WriteLog()
{
    InitFerngateApplication();                      // once, on the main thread
    SetLogFile(L"./file_names.log", xLogCreate, 5); // messages of levels up to 5
    WriteToLogFile(L"loading %s\n", L"garden.xyz");
    LogFileAddTab(true);
    WriteToLogFile(3U, L"%d points\n", 1200); // indented by a tab
    WriteToLogFile(9U, L"point by point\n");  // left out
    LogFileAddTab(false);
    CloseLogFile();
}
} // namespace

int main()
{
    ShowTypes();
    ShowColour();
    WriteLog();
    return 0;
}
