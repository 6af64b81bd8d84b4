#pragma once

#include "zip/CMiniZip.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace tev::fuzz
{
/// Large enough for several buffers, small enough for thousands of inputs.
constexpr unsigned __int64 kMostBytes = 400'000;

inline void Check(bool holds)
{
    if (!holds)
        std::abort();
}

/// A folder that lives as long as the process, with the input in it and one to extract to.
class ExtractionFolder
{
public:
    ExtractionFolder()
    {
        std::string name = (std::filesystem::temp_directory_path() / "tevtools-fuzz-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr)
            throw std::runtime_error("cannot create " + name);
        m_path = name;
    }
    ~ExtractionFolder() { std::filesystem::remove_all(m_path); }
    ExtractionFolder(const ExtractionFolder&) = delete;
    ExtractionFolder& operator=(const ExtractionFolder&) = delete;

    CXTString<wchar_t> Write(const std::uint8_t* data, std::size_t size) const
    {
        std::ofstream(m_path / "input", std::ios::binary)
            .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
        std::filesystem::create_directory(m_path / "out");
        return Wide("input");
    }
    CXTString<wchar_t> Wide(const char* name) const { return (m_path / name).wstring().c_str(); }

    /// Checks that the files below "out" are those in the list, and that cleaning deletes them.
    void CheckAndClean(CMiniZip& zip, bool isDone) const
    {
        namespace fs = std::filesystem;
        int files = 0;
        unsigned __int64 bytes = 0;
        for (const auto& entry : fs::recursive_directory_iterator(m_path / "out"))
        {
            Check(!entry.is_symlink() && (entry.is_directory() || entry.is_regular_file()));
            files += entry.is_directory() ? 0 : 1;
            bytes += entry.is_directory() ? 0 : entry.file_size();
        }
        // Of a damaged gzip file there may be nothing.
        const bool isDamaged = zip.GetFailure() == CXExtractionFailure::kDamaged;
        Check(files == zip.GetExtractedFiles().GetSize() && bytes <= kMostBytes);
        Check(files != 0 || !isDone || isDamaged);
        Check(isDone == (zip.GetFailure() == CXExtractionFailure::kNone) || isDamaged);
        Check(std::distance(fs::directory_iterator(m_path), {}) == 2);
        zip.Clean();
        Check(zip.GetExtractedFiles().IsEmpty());
        for (const auto& entry : fs::recursive_directory_iterator(m_path / "out"))
            Check(entry.is_directory());
        fs::remove_all(m_path / "out");
    }

private:
    std::filesystem::path m_path;
};

/// Unpacks one compressed file by `extract`. Only what `isOne` knows gives a file.
template <class EXTRACT>
void UnpackFile(const std::uint8_t* data, std::size_t size, EXTRACT extract, bool (*isOne)(const CXTString<wchar_t>&))
{
    static const ExtractionFolder folder;
    const CXTString<wchar_t> input = folder.Write(data, size);
    CMiniZip zip;
    zip.SetLimits({kMostBytes, 100'000});
    const bool isDone = extract(zip, input, folder.Wide("out/file"));
    Check(!isDone || isOne(input));
    folder.CheckAndClean(zip, isDone);
}
} // namespace tev::fuzz
