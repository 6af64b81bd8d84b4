#pragma once

#include "platform/PathNames.h"
#include "tests/support/PrintText.h"
#include "tests/support/RawZip.h"
#include "tests/support/TempFolder.h"
#include "threads/WorkerCount.h"
#include "zip/CMiniZip.h"

namespace tev::test
{
namespace fs = std::filesystem;
using Text = CXTString<wchar_t>;
using Contents = std::map<std::string, std::string>;

inline std::string Noise(std::size_t size, unsigned seed = 1)
{
    std::string bytes(size, '\0');
    for (char& byte : bytes)
    {
        seed = seed * 1664525u + 1013904223u;
        byte = static_cast<char>(seed >> 24);
    }
    return bytes;
}

/// Another program's work.
inline void Shell(const std::string& command)
{
    if (std::system(("(" + command + ") >/dev/null 2>&1").c_str()) != 0)
        throw std::runtime_error("cannot do: " + command);
}

/// Ends an extraction after so many reports.
class Watched : public CMiniZip
{
public:
    std::function<bool(unsigned __int64, unsigned __int64)> m_watch;

protected:
    bool OnProgress(unsigned __int64 processed, unsigned __int64 total) override
    {
        return !m_watch || m_watch(processed, total);
    }
};

class MiniZip : public testing::Test
{
protected:
    ~MiniZip() override
    {
        OMPSetMaxThreadCount(1000);
        unsetenv("TMPDIR");
    }

    Text Wide(const std::string& name) const { return m_folder.WidePath(name).c_str(); }
    std::string Path(const std::string& name) const { return m_folder.Path(name).string(); }

    Text WriteZip(const std::vector<RawEntry>& entries) { return m_folder.WriteFile("a.zip", RawZip(entries)).c_str(); }

    /// The paths in the list, without that of the folder.
    std::vector<std::string> Listed(const CMiniZip& zip) const
    {
        std::vector<std::string> names;
        for (const Text& file : zip.GetExtractedFiles())
        {
            std::string path; // a conversion of the C++ library would go through the C locale
            EXPECT_TRUE(tev::platform::WidePathToSystem(file, path));
            names.push_back(fs::path(path).lexically_relative(m_folder.Path()).string());
        }
        return names;
    }

    /// All files beneath the folder, with their contents.
    Contents Files(const std::string& folder) const { return FilesBeneath(m_folder.Path(folder)); }

    int TemporaryCount() const { return static_cast<int>(m_folder.Names("tmp").size()); }
    void UseOwnTemporaryFolder()
    {
        fs::create_directory(m_folder.Path("tmp"));
        setenv("TMPDIR", Path("tmp").c_str(), 1);
    }

    TempFolder m_folder;
};

/// What was skipped and why.
inline std::vector<std::pair<std::wstring, CXSkipReason>> SkippedBy(const CMiniZip& zip)
{
    std::vector<std::pair<std::wstring, CXSkipReason>> skipped;
    for (const CXSkippedEntry& entry : zip.GetSkippedEntries())
        skipped.emplace_back(entry.m_name.GetConstBuffer(), entry.m_reason);
    return skipped;
}
} // namespace tev::test
