// ZIP archives made of anything: listed, searched, tested, extracted, and changed where that is possible.

#include "system/CZip.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace
{
namespace fs = std::filesystem;

constexpr unsigned kMostEntries = 32;
constexpr CXExtractionLimits kLimits = {1u << 20, 1000};

void Check(bool holds)
{
    if (!holds)
        std::abort();
}

/// A folder for one process, of which nothing is left.
class Folder
{
public:
    Folder()
    {
        std::string name = (fs::temp_directory_path() / "fuzz-zip-XXXXXX").string();
        Check(mkdtemp(name.data()) != nullptr);
        m_path = name;
    }
    ~Folder() { fs::remove_all(m_path); }
    fs::path Path(const char* name) const { return m_path / name; }
    /// What lies there beside the archive and the folder for what is extracted.
    bool HasMore() const
    {
        for (const fs::directory_entry& entry : fs::directory_iterator(m_path))
        {
            if (entry.path().filename() != "x.zip" && entry.path().filename() != "out")
                return true;
        }
        return false;
    }

private:
    fs::path m_path;
};

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

void Extract(CZip& zip, const Folder& folder)
{
    const fs::path out = folder.Path("out");
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
    if (fs::exists(out))
    {
        for (const fs::directory_entry& entry : fs::recursive_directory_iterator(out))
        {
            Check(!entry.is_symlink());
            written += entry.is_regular_file() ? entry.file_size() : 0;
        }
    }
    Check(written <= kLimits.m_totalBytes && !folder.HasMore());
    fs::remove_all(out);
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
    static const Folder folder;
    const fs::path path = folder.Path("x.zip");
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    {
        CZip zip;
        if (!zip.Open(path.wstring().c_str(), zipOpenReadOnly, false, nullptr))
            return 0;
        Look(zip);
        Extract(zip, folder);
    }
    Change(path.wstring());
    Check(!folder.HasMore());
    return 0;
}
