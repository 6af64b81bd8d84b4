#include "services/CWatchFolder.h"
#include "tests/services/WatchFolderFixture.h"

#include <fcntl.h>

namespace
{
using namespace tev::test;
using Names = std::set<std::string>;

bool IsFolder(const fs::path& path)
{
    std::error_code missing;
    return fs::is_directory(fs::symlink_status(path, missing));
}

/// What is beneath a folder by the paths of what it reports; entries that are deleted meanwhile are left out.
void Scan(const fs::path& root, const std::string& name, Names& names)
{
    std::error_code error;
    for (fs::directory_iterator entry(root / name, error), end; !error && entry != end; entry.increment(error))
    {
        const std::string path = (name.empty() ? "" : name + "/") + entry->path().filename().string();
        names.insert(path);
        if (IsFolder(entry->path()))
            Scan(root, path, names);
    }
}

/// A list of names as a host keeps it.
class KnownNames
{
public:
    explicit KnownNames(fs::path root) : m_root(std::move(root)) { Scan(m_root, "", m_names); }

    const Names& Get() const { return m_names; }

    /// Takes over the map, and looks at the paths in it only.
    void Apply(const std::map<std::string, int>& changes)
    {
        for (const auto& [name, change] : changes)
        {
            if (change == CWatchFolder::xChangeWholeFolder)
            {
                m_names.clear();
                Scan(m_root, "", m_names);
                return;
            }
        }
        std::string read = "/";
        for (const auto& [name, change] : changes)
        {
            if (name.compare(0, read.size(), read) == 0)
                continue; // what the map says may be about a folder that had the name before
            Take(name);
            if (!fs::exists(fs::symlink_status(m_root / name)))
                continue;
            m_names.insert(name);
            if (change != CWatchFolder::xChangeRenamed)
                continue;
            Scan(m_root, name, m_names);
            read = name + "/";
        }
    }

    /// Takes over a change of the list without looking at the disk.
    void Apply(int change, const std::string& name, const std::string& oldName, bool isExchange)
    {
        if (change == CWatchFolder::xChangeWholeFolder)
        {
            m_names.clear();
            Scan(m_root, "", m_names);
        }
        else if (change == CWatchFolder::xChangeRenamed)
        {
            const Names moved = Take(oldName);
            const Names replaced = Take(name);
            Put(moved, oldName, name);
            if (isExchange)
                Put(replaced, name, oldName);
        }
        else if (change != CWatchFolder::xChangeModified)
        {
            Take(name);
            if (change == CWatchFolder::xChangeAdded)
                m_names.insert(name);
        }
    }

private:
    /// A name with all beneath it.
    Names Take(const std::string& name)
    {
        Names taken;
        const auto first = m_names.lower_bound(name + "/");
        const auto last = m_names.lower_bound(name + "0"); // '0' follows '/'
        taken.insert(first, last);
        m_names.erase(first, last);
        if (m_names.erase(name) != 0)
            taken.insert(name);
        return taken;
    }
    /// A name that was not known was created while its folder was read.
    void Put(const Names& names, const std::string& from, const std::string& to)
    {
        m_names.insert(to);
        for (const std::string& name : names)
            m_names.insert(to + name.substr(from.size()));
    }

    fs::path m_root;
    Names m_names;
};

/// A tree that is changed at random, and two lists of its names that are kept up to date by the map and by the list.
class WatchedTree : public testing::Test
{
protected:
    WatchedTree()
    {
        for (const char* name : {"w/a/b/c", "w/b/a", "out/a/b", "out/spare/c"})
            m_folder.WriteFile(std::string(name) + "/f", "");
        EXPECT_TRUE(m_watcher.AddRefreshNotification(m_folder.WidePath("w").c_str(), true, kNames));
        m_byMap = KnownNames(Root());
        m_byList = KnownNames(Root());
    }

    fs::path Root() const { return m_folder.Path("w"); }

    std::string RandomName(unsigned depth)
    {
        std::string name;
        for (unsigned i = m_random() % depth + 1; i != 0; --i)
            name += std::string(name.empty() ? "" : "/") + static_cast<char>('a' + m_random() % 3);
        return name;
    }
    fs::path Inside() { return Root() / RandomName(4); }
    fs::path Outside() { return m_folder.Path("out") / RandomName(1); }

    /// With 9 kinds there is no exchange: the halves of one may come in different polls.
    void ChangeSomething(unsigned kinds)
    {
        std::error_code ignored; // many of the changes are impossible
        const fs::path path = Inside();
        switch (m_random() % kinds)
        {
        case 0:
            fs::create_directories(path, ignored);
            break;
        case 1:
            fs::create_directories(path, ignored);
            std::ofstream(path / "f") << "x";
            break;
        case 2:
            std::ofstream(path) << "x";
            break;
        case 3:
            fs::remove_all(path, ignored);
            break;
        case 4:
            fs::rename(path, Outside(), ignored);
            break;
        case 5:
            fs::rename(Outside(), path, ignored);
            break;
        case 9:
            renameat2(AT_FDCWD, path.c_str(), AT_FDCWD, Inside().c_str(), RENAME_EXCHANGE);
            break;
        case 6: // another folder in its place
            if (IsFolder(path))
            {
                fs::rename(path, m_folder.Path("out/replaced"), ignored);
                fs::rename(m_folder.Path("out/spare"), path, ignored);
                fs::rename(m_folder.Path("out/replaced"), m_folder.Path("out/spare"), ignored);
            }
            break;
        default:
            fs::rename(path, Inside(), ignored);
        }
    }

    void Replace()
    {
        fs::rename(Root(), m_folder.Path("former"));
        fs::create_directories(Root() / "new/a");
        fs::remove_all(m_folder.Path("former"));
    }

    /// Returns whether the whole folder was reported.
    bool Poll()
    {
        if (!m_watcher.CheckRefreshNotification())
            return false;
        const std::size_t prefix = Root().string().size() + 1;
        const auto nameOf = [&](const CXTString<wchar_t>& path) {
            const std::wstring wide = path.GetConstBuffer();
            return std::string(wide.begin(), wide.end()).substr(std::min(prefix, wide.size()));
        };
        std::map<std::string, int> changes;
        const CWatchFolder::Changes& map = m_watcher.GetChanges();
        const CXTString<wchar_t>* path = nullptr;
        CWatchFolder::FileChange* change = nullptr;
        for (unsigned position = map.GetFirst(); map.GetNext(position, path, change);)
            changes[nameOf(*path)] = *change;
        for (const CWatchFolder::OrderedChange& entry : m_watcher.GetChangeList())
        {
            EXPECT_EQ(entry.m_oldPath == L"", entry.m_change != CWatchFolder::xChangeRenamed);
            m_byList.Apply(entry.m_change, nameOf(entry.m_path), nameOf(entry.m_oldPath), entry.m_isExchange);
        }
        m_watcher.ReleaseChanges();
        m_byMap.Apply(changes);
        return changes.count("") != 0;
    }

    void ExpectToKnowAll(int round)
    {
        Names present;
        Scan(Root(), "", present);
        ASSERT_EQ(m_byMap.Get(), present) << "by the map, round " << round;
        ASSERT_EQ(m_byList.Get(), present) << "by the list, round " << round;
    }

    TempFolder m_folder;
    CWatchFolder m_watcher;
    KnownNames m_byMap{fs::path()};
    KnownNames m_byList{fs::path()};
    std::mt19937 m_random{15};
};

TEST_F(WatchedTree, ChangesOfEachPollExplainWhatIsOnTheDisk)
{
    int replacements = 0;
    int wholes = 0;
    for (int round = 0; round < 700 && !HasFatalFailure(); ++round)
    {
        for (unsigned i = m_random() % 20; i != 0; --i)
            ChangeSomething(10);
        if (round % 100 == 99)
        {
            Replace();
            ++replacements;
        }
        wholes += Poll() ? 1 : 0;
        ExpectToKnowAll(round);
    }
    constexpr int kFullBuffers = 1; // one of these polls has more changes than the buffer of a watch holds
    EXPECT_EQ(wholes, replacements + kFullBuffers) << "other changes are explained";
}

using WatchedTreeThread = WatchedTree;

TEST_F(WatchedTreeThread, ChangesDuringPollsAreKnownAfterTheLast)
{
    for (int round = 0; round < 20 && !HasFatalFailure(); ++round)
    {
        std::atomic<bool> isDone{false};
        std::thread changer([&] {
            for (int i = 0; i < 100; ++i)
                ChangeSomething(9);
            isDone = true;
        });
        while (!isDone)
            Poll();
        changer.join();
        Poll();
        Poll(); // the first one may find a folder that it did not know where it was
        ExpectToKnowAll(round);
    }
}
} // namespace
