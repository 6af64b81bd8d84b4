// Creates a ZIP archive, lists it, changes it and extracts from it.

#include "services/Paths.h"
#include "text/CXTString.h"
#include "text/XCA2W.h"
#include "zip/CZip.h"

#include <cstdio>

namespace
{
/// Skips unwanted entries, and ends the operation when the user cancels.
class Choice : public CZipExtractCallback
{
public:
    bool OnProgress(unsigned __int64 processed) override { return processed < 100'000'000; }
    int OnExtractEntry(const CZipFileInfo& entry, const wchar_t* /*targetPath*/) override
    {
        return entry.GetUncompressedSize() > 10'000'000 ? xZipSkipEntry : xZipExtractEntry;
    }
};

bool Pack(const CPathString& folder)
{
    CZip zip;
    if (!zip.Open(L"pawn.zip", zipCreate, false, nullptr))
        return false;
    zip.AddNewFile(folder / L"pawn.obj", false, zipLevelBest);
    zip.AddNewFile(folder / L"pawn.mtl", L"materials/pawn.mtl", zipLevelDefault);
    zip.SetPassword(L"secret"); // from here on entries are encrypted
    zip.AddNewFile(folder / L"utf8.txt", L"notes.txt", zipLevelDefault);
    zip.Close(false); // writes the archive
    return zip.GetLastFailure() == XZipFailure::kNone;
}

void List()
{
    CZip zip;
    if (!zip.Open(L"pawn.zip", zipOpenReadOnly, false, nullptr))
        return;
    for (int index = 0; index < zip.GetCount(false); ++index)
    {
        CZipFileInfo info;
        if (zip.GetFileInfo(info, static_cast<unsigned>(index)))
            std::printf("%s, %llu bytes\n", static_cast<const char*>(XCW2A(info.GetFileName(), xEncodingUtf8)),
                        info.GetUncompressedSize());
    }
}

bool Extract()
{
    Choice choice;
    CZip zip;
    if (!zip.Open(L"pawn.zip", zipOpenReadOnly, false, &choice))
        return false;
    const unsigned index = zip.FindFile(L"PAWN.MTL", false, true); // in any folder, case-insensitively
    return index != xZipNoEntry && zip.ExtractFile(index, L"out", true, nullptr, false) == zipExtracted;
}

void Change()
{
    CZip zip;
    if (!zip.Open(L"pawn.zip", zipOpenReadWrite, false, nullptr))
        return;
    CXArray<CXTString<wchar_t>, const CXTString<wchar_t>&> names;
    names.Add(L"notes.txt");
    if (!zip.DeleteFiles(names))
        zip.Discard(); // discards all changes; Close would write them
    zip.Close(false);
    if (zip.GetLastFailure() == XZipFailure::kReplaced)
        std::printf("another program has changed the archive\n");
}

bool SplitPath()
{
    CXTString<wchar_t> path = L"pawn.zip/materials";
    CXTString<wchar_t> inner;
    return CZip::ExtractDirInfo(path, inner, 0) && path == L"pawn.zip" && inner == L"materials\\";
}
} // namespace

int main(int argumentCount, char** arguments)
{
    const CPathString folder(argumentCount > 1 ? CXTString<wchar_t>(arguments[1]) : L"examples/data");
    if (!Pack(folder))
        return 1;
    List();
    if (!Extract() || !fileIsFile(L"out/materials/pawn.mtl"))
        return 1;
    Change();
    return SplitPath() ? 0 : 1;
}
