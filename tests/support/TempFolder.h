#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <stdexcept>
#include <string>

namespace tev::test
{

/// A fresh, empty folder for one test, removed with everything in it when the object goes. Names are UTF-8 and may hold
/// folders ("a/b.txt"), which WriteFile creates. One thread at a time.
class TempFolder
{
public:
    TempFolder()
    {
        std::string name = (std::filesystem::temp_directory_path() / "tevtools-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr)
            throw std::runtime_error("cannot create the temporary folder " + name);
        m_path = name;
    }

    ~TempFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }

    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    /// The folder itself, or the full path of an entry of it, which need not exist.
    std::filesystem::path Path() const { return m_path; }
    std::filesystem::path Path(const std::string& name) const { return m_path / std::filesystem::u8path(name); }
    /// As Path, in the form that the library's classes take.
    std::wstring WidePath() const { return Widen(m_path); }
    std::wstring WidePath(const std::string& name) const { return Widen(Path(name)); }

    bool Exists(const std::string& name) const { return std::filesystem::exists(Path(name)); }
    /// The names in it, or in a folder of it.
    std::set<std::string> Names(const std::string& folder = {}) const
    {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(Path(folder)))
            names.insert(entry.path().filename().string());
        return names;
    }

    /// Makes a file of exactly these bytes and returns its full wide path.
    std::wstring WriteFile(const std::string& name, const std::string& bytes) const
    {
        std::filesystem::create_directories(Path(name).parent_path());
        std::ofstream file(Path(name), std::ios::binary | std::ios::trunc);
        file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        if (!file.flush())
            throw std::runtime_error("cannot write " + Path(name).string());
        return WidePath(name);
    }

    /// All bytes of a file; throws when it cannot be read.
    std::string ReadFile(const std::string& name) const
    {
        std::ifstream file(Path(name), std::ios::binary);
        if (!file)
            throw std::runtime_error("cannot read " + Path(name).string());
        return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }

private:
    static std::wstring Widen(const std::filesystem::path& path)
    {
        const std::u32string text = path.u32string(); // wstring() would go through the C locale
        return std::wstring(text.begin(), text.end());
    }

    std::filesystem::path m_path;
};

/// The contents of all files beneath a folder, by their names in it; none where there is no folder.
inline std::map<std::string, std::string> FilesBeneath(const std::filesystem::path& folder, bool withLinks = true)
{
    std::map<std::string, std::string> files;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder, ignored))
    {
        if (entry.is_directory() || (entry.is_symlink() && !withLinks))
            continue;
        std::ifstream file(entry.path(), std::ios::binary);
        files[entry.path().lexically_relative(folder).string()].assign(std::istreambuf_iterator<char>(file), {});
    }
    return files;
}

/// What this process has open.
inline std::ptrdiff_t OpenDescriptors()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}
} // namespace tev::test
