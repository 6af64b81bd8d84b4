// Reads models out of compressed files: unpack, read, clean up.

#include "services/Paths.h"
#include "text/CXTString.h"
#include "text/XCA2W.h"
#include "zip/CMiniZip.h"

#include <cstdio>

namespace
{
/// Prints the progress. Returning false would end the extraction.
class Unpacking : public CMiniZip
{
protected:
    bool OnProgress(unsigned __int64 processed, unsigned __int64 total) override
    {
        m_part = total != 0 ? static_cast<double>(processed) / static_cast<double>(total) : 0;
        return true;
    }

public:
    double m_part = 0;
};

void Print(const CXTString<wchar_t>& path)
{
    std::printf("%s\n", static_cast<const char*>(XCW2A(path, xEncodingUtf8)));
}

void ReadModel(const CPathString& archive)
{
    CMiniZip zip;
    if (!zip.ExtractAny(archive)) // ZIP, gzip or Zstandard, into a temporary folder
        return;
    for (const CXTString<wchar_t>& file : zip.GetExtractedFiles())
    {
        if (CPathString(file).GetExtension() == L".obj")
            Print(CPathString(file).GetFileName()); // read the model here; its textures are in the same folder
    }
} // the folder is deleted with the object

void UnpackScan(const CPathString& file)
{
    CMiniZip zip;
    CXExtractionLimits limits;
    limits.m_totalBytes = 100'000'000;
    zip.SetLimits(limits);
    if (zip.ExtractZFile(file, L"scan.obj", true)) // gzip or Zstandard, by the first bytes
        Print(zip.GetExtractedFiles()[0]);
}

void UnpackForGood(const CPathString& archive)
{
    Unpacking zip;
    zip.SetPassword(L"secret"); // for entries that are encrypted
    if (!zip.ExtractZip(archive, L"models", true))
        std::printf("failed: %d\n", static_cast<int>(zip.GetFailure()));
    for (const CXSkippedEntry& entry : zip.GetSkippedEntries())
        Print(L"left out: " + entry.m_name);
    std::printf("%d files, %.0f %%\n", zip.GetExtractedFiles().GetSize(), 100 * zip.m_part);
}
} // namespace

int main(int, char** arguments)
{
    const CPathString archives = CPathString(arguments[1]) / L"archives";
    ReadModel(archives / L"pawn.zip");
    UnpackScan(archives / L"pawn.obj.gz");
    UnpackScan(archives / L"pawn.obj.zst");
    UnpackForGood(archives / L"pawn.zip");
    return fileExists(L"models/pawn/textures/wood/oak.png") && fileExists(L"scan.obj") ? 0 : 1;
}
