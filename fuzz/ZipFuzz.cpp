// ZIP archives made of anything: listed, searched, tested, extracted, and changed where that is possible.

#include "fuzz/ExtractionFolder.h"
#include "zip/CZip.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cwchar>
#include <filesystem>
#include <string>

namespace
{
namespace fs = std::filesystem;
using tev::fuzz::Check;

constexpr unsigned kMostEntries = 32;
constexpr CXExtractionLimits kLimits = {1u << 20, 1000};

unsigned Entries(const CZip& zip)
{
    Check(zip.GetCount(true) <= zip.GetCount(false));
    return std::min(static_cast<unsigned>(zip.GetCount(false)), kMostEntries);
}

void Look(CZip& zip)
{
    for (unsigned index = 0; index < Entries(zip); ++index)
    {
        CZipFileInfo info;
        if (!zip.GetFileInfo(info, index))
            continue;
        const unsigned found = zip.FindFile(info.GetFileName(), true, false);
        Check(info.GetFileName().GetLength() != static_cast<int>(std::wcslen(info.GetFileName())) || found <= index);
    }
    CXArray<unsigned, unsigned> all;
    Check(zip.FindMatchingFiles(all, L"*", false, true) == zip.GetCount(false));
}

void Extract(CZip& zip, const fs::path& out)
{
    zip.SetPassword(L"key");
    zip.SetLimits(kLimits);
    for (unsigned index = 0; index < Entries(zip); ++index)
    {
        CZipFileInfo info;
        if (zip.GetFileInfo(info, index) && info.GetUncompressedSize() < kLimits.m_totalBytes)
            zip.TestFile(index);
        zip.ExtractFile(index, out.wstring().c_str(), index % 2 == 0, nullptr, false);
    }
    std::uintmax_t written = 0;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(out))
    {
        Check(!entry.is_symlink());
        written += entry.is_regular_file() ? entry.file_size() : 0;
    }
    Check(written <= kLimits.m_totalBytes);
}

void Change(const std::wstring& path)
{
    CZip zip;
    if (!zip.Open(path.c_str(), zipOpenReadWrite, false, nullptr) || zip.IsReadOnly() || zip.GetCount(false) == 0)
        return;
    CZipFileInfo info;
    CXArray<CXTString<wchar_t>, const CXTString<wchar_t>&> names;
    if (zip.GetFileInfo(info, 0))
        names.Add(info.GetFileName());
    const int count = zip.GetCount(false);
    const bool isDeleted = !names.IsEmpty() && zip.DeleteFiles(names);
    zip.Close(false);
    if (!isDeleted || zip.GetLastFailure() != XZipFailure::kNone)
        return;
    Check(zip.Open(path.c_str(), zipOpenReadOnly, false, nullptr) && zip.GetCount(false) == count - 1);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const tev::fuzz::ExtractionFolder folder;
    const std::wstring path(folder.Write(data, size));
    const fs::path out = std::wstring(folder.Wide("out"));
    CZip zip;
    const bool isOpened = zip.Open(path.c_str(), zipOpenReadOnly, false, nullptr);
    if (isOpened)
    {
        Look(zip);
        Extract(zip, out);
        zip.Close(false);
        Change(path);
    }
    fs::remove_all(out);
    // Nothing was written beside the archive.
    Check(std::distance(fs::directory_iterator(out.parent_path()), {}) == 1);
    return 0;
}
