// Settings in the registry: keeps the position of a window, lists recent files below it, reads them fast, and exports
// all of it as text.

#include "TevTools.h"

#include <cstdio>
#include <string>

namespace
{
const wchar_t kProgram[] = L"HKEY_CURRENT_USER\\Software\\Maker\\Viewer";

void SaveWindow(int width, const wchar_t* title)
{
    CRegUtil registry(CRegUtil::kReadWrite);
    if (!registry.SetPath(kProgram, true)) // creates the key where it is missing
        std::printf("the settings cannot be saved: error %d\n", registry.GetLastError());
    registry.WriteSubKeyInt(L"Window", L"Width", static_cast<unsigned long>(width));
    registry.WriteSubKeyString(L"Window", L"Title", title);
}

int WindowWidth()
{
    CRegUtil registry(CRegUtil::kRead);
    registry.SetPath(kProgram, false);
    return registry.GetSubKeyInt(L"Window", L"Width", 800); // 800 where there is no such value
}

bool SaveRecentFiles()
{
    CRegUtil registry(CRegUtil::kReadWrite);
    if (!registry.SetPath(kProgram, true) || !registry.SetRelPath(L"Recent", true))
        return false;
    registry.OpenBase(false); // several operations are faster while the key stays open
    registry.WriteKeyString(L"File1", L"walls.3d");
    registry.WriteKeyString(L"File2", L"roof.3d");
    registry.CloseBase();
    return true;
}

bool SavePalette(const unsigned (&colours)[100])
{
    CRegUtil registry(CRegUtil::kReadWrite);
    if (!registry.SetPath(kProgram, true))
        return false;
    registry.StartBatch(); // from here on changes are collected
    for (int i = 0; i < 100; ++i)
        registry.WriteSubKeyInt(L"Colours", std::to_wstring(i).c_str(), colours[i]);
    return registry.EndBatch(); // all of them are made, or none
}

int ShowRecentFiles()
{
    CRegUtil registry(CRegUtil::kRead);
    registry.SetPath(kProgram, false);
    int count = 0;
    wchar_t name[64];
    registry.StartValueSection(L"Recent");
    while (registry.GetNextValueName(name, 64))
    {
        const CXTString<wchar_t> file = registry.GetKeyString(name, true);
        std::printf("recent file: %s\n", static_cast<const char*>(XCW2A(file, xEncodingUtf8)));
        ++count;
    }
    registry.EndValueSection();
    return count;
}

bool CarryOver()
{
    int systemError = 0;
    CXFile file(L"./viewer.reg", CXFile::modeCreate | CXFile::modeWrite);
    const bool written = XExportRegistry(kProgram, file, xEncodingUtf16, systemError);
    file.Close();

    XRegistryImport result;
    const CXTString<wchar_t> text = L"REGEDIT4\n[HKEY_CURRENT_USER\\Software\\Maker\\Viewer]\n\"Level\"=dword:3\n";
    if (!XImportRegistry(text, result))
        std::printf("line %d cannot be taken over\n", result.m_line);
    return written && result.m_fault == XRegistryFault::None;
}
} // namespace

int main()
{
    SaveWindow(1280, L"Roof \u2013 north");
    unsigned colours[100] = {0xFFCC00};
    const bool good =
        WindowWidth() == 1280 && SaveRecentFiles() && ShowRecentFiles() == 2 && SavePalette(colours) && CarryOver();
    CRegUtil maker(CRegUtil::kReadWrite);
    maker.SetPath(L"HKEY_CURRENT_USER\\Software\\Maker", false);
    return maker.DeleteKey(L"Viewer", true) && good ? 0 : 1;
}
