#pragma once

#include "services/CWatchFolder.h"
#include "tests/support/TempFolder.h"
#include "tests/support/Testing.h"

namespace tev::test
{
constexpr unsigned kNames = CWatchFolder::kFileNames | CWatchFolder::kFolderNames;
constexpr unsigned kAll = kNames | CWatchFolder::kAttributes | CWatchFolder::kSize | CWatchFolder::kLastWrite;

/// Paths relative to the folder, with '+' added, '-' removed, '~' modified, '>' renamed, '!' changed as a whole.
inline std::string Describe(CWatchFolder& watcher, const std::wstring& folder)
{
    std::map<std::wstring, char> sorted;
    const CWatchFolder::Changes& changes = watcher.GetChanges();
    const CXTString<wchar_t>* path = nullptr;
    CWatchFolder::FileChange* change = nullptr;
    for (unsigned position = changes.GetFirst(); changes.GetNext(position, path, change);)
    {
        sorted[path->GetConstBuffer()] = " +-~>!"[*change];
    }
    watcher.ReleaseChanges();
    std::string text;
    for (const auto& [name, sign] : sorted)
    {
        EXPECT_EQ(name.compare(0, folder.size(), folder), 0);
        text += text.empty() ? "" : " ";
        text += sign;
        for (const wchar_t character : name.substr(folder.size()))
            text += character < 0x80 ? static_cast<char>(character) : '?';
    }
    return text;
}

class CWatchFolderTest : public testing::Test
{
protected:
    bool Watch(bool withSubtree, unsigned filter = kAll, const std::string& name = "w")
    {
        fs::create_directories(m_folder.Path(name));
        return m_watcher.AddRefreshNotification(m_folder.WidePath(name).c_str(), withSubtree, filter);
    }
    std::string Changes()
    {
        const bool some = m_watcher.CheckRefreshNotification();
        m_list = DescribeList();
        const std::string text = Describe(m_watcher, m_folder.WidePath("w") + L"/");
        EXPECT_EQ(some, !text.empty());
        return text;
    }
    /// Entries of the list, with "old>new" for a rename and "old=new" for an exchange.
    std::string DescribeList()
    {
        const auto nameOf = [&](const CXTString<wchar_t>& path) {
            const std::wstring name = path.GetConstBuffer();
            return std::string(name.begin() + static_cast<int>(m_folder.WidePath("w/").size()), name.end());
        };
        std::string text;
        m_watcher.GetChanges();
        for (const CWatchFolder::OrderedChange& entry : m_watcher.GetChangeList())
        {
            text += text.empty() ? "" : " ";
            if (entry.m_change == CWatchFolder::xChangeRenamed)
                text += nameOf(entry.m_oldPath) + (entry.m_isExchange ? "=" : ">") + nameOf(entry.m_path);
            else
                text += " +-~>!"[entry.m_change] + nameOf(entry.m_path);
        }
        return text;
    }
    void Touch(const std::string& name) { std::ofstream(m_folder.Path(name), std::ios::app) << "x"; }
    void MakeFolder(const std::string& name) { fs::create_directory(m_folder.Path(name)); }
    void Rename(const std::string& from, const std::string& to) { fs::rename(m_folder.Path(from), m_folder.Path(to)); }

    TempFolder m_folder;
    CWatchFolder m_watcher;
    std::string m_list; ///< at the last call of Changes
};
} // namespace tev::test
