#include "platform/FolderWatch.h"

#include "platform/ForkHandlers.h"
#include "platform/PathNames.h"
#include "platform/posix/watch/FolderTree.h"
#include "platform/posix/watch/WatchLock.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <mutex>
#include <system_error>
#include <utility>
#include <vector>

namespace tev::platform
{
namespace
{
// While events arrive faster than they are handled, a poll must end all the same.
constexpr int kMostBatches = 8;

/// The trees of the process. Whichever watch is polled handles the events of all.
class WatchedTrees
{
public:
    /// With the lock held, as all members.
    static WatchedTrees& Get()
    {
        if (s_trees == nullptr)
            s_trees = new WatchedTrees; // never destroyed: a watch may exist as long as the process
        return *s_trees;
    }

    static void StartInChild() noexcept;

    InotifyQueue& Queue() noexcept { return m_queue; }
    bool Join(FolderTree& tree);
    void Leave(FolderTree& tree) noexcept;
    /// Handles the events that wait. After an exception all trees are given up.
    void Pump();

private:
    void HandleEvents();
    void Handle(const EventBatch& batch, std::size_t index);
    void LoseAll() noexcept;

    InotifyQueue m_queue;
    std::vector<FolderTree*> m_trees;
    // Of the events that are handled; kept for their memory.
    EventBatch m_batch;
    std::vector<NumberedFolder*> m_folders;

    static WatchedTrees* s_trees;
};

WatchedTrees* WatchedTrees::s_trees = nullptr;

// A child made by fork shares the parent's queue, and would take its events and end its watches: it opens its own.
void WatchedTrees::StartInChild() noexcept
{
    if (s_trees != nullptr)
    {
        s_trees->m_queue.Close();
        for (FolderTree* tree : s_trees->m_trees)
            tree->StartInChild();
    }
    g_watchLock.UnlockInChild();
}

const ForkHandler g_forkOfWatches(
    ForkRank::FolderWatches, [] { g_watchLock.LockForFork(); }, [] { g_watchLock.UnlockInParent(); },
    [] { WatchedTrees::StartInChild(); });

void WatchedTrees::LoseAll() noexcept
{
    for (FolderTree* tree : m_trees)
        tree->Lose();
}

bool WatchedTrees::Join(FolderTree& tree)
{
    if (!m_queue.Open())
        return false;
    m_trees.push_back(&tree);
    return true;
}

void WatchedTrees::Leave(FolderTree& tree) noexcept
{
    m_trees.erase(std::remove(m_trees.begin(), m_trees.end(), &tree), m_trees.end());
    if (m_trees.empty())
        m_queue.Close(); // at once for all folders
}

void WatchedTrees::Pump()
{
    try
    {
        HandleEvents();
    }
    catch (...)
    {
        LoseAll();
        for (FolderTree* tree : m_trees)
            tree->EndBatch();
        throw;
    }
}

void WatchedTrees::HandleEvents()
{
    if (!m_queue.Open())
        return;
    bool isSettled = false;
    for (int i = 0; !isSettled && i < kMostBatches; ++i)
    {
        m_queue.Read(m_batch);
        for (std::size_t event = 0; event < m_batch.Size(); ++event)
            Handle(m_batch, event);
        isSettled = true;
        for (FolderTree* tree : m_trees)
        {
            tree->EndBatch();
            isSettled = tree->Settle(m_batch, i == 0) && isSettled;
        }
    }
}

void WatchedTrees::Handle(const EventBatch& batch, std::size_t index)
{
    const inotify_event& event = batch[index];
    if ((event.mask & IN_Q_OVERFLOW) != 0)
        return LoseAll();
    m_queue.FoldersOf(event.wd, m_folders);
    for (NumberedFolder* numbered : m_folders)
    {
        if (!m_queue.IsBound(event.wd, numbered))
            continue; // removed while the event was handled for another one
        auto& folder = static_cast<WatchedFolder&>(*numbered);
        folder.m_tree.Handle(folder, batch, index);
    }
}

class InotifyFolderWatch final : public FolderWatch
{
public:
    InotifyFolderWatch(std::string path, bool withSubfolders, unsigned bits)
    {
        const std::lock_guard<WatchLock> guard(g_watchLock);
        m_tree = std::make_unique<FolderTree>(WatchedTrees::Get().Queue(), std::move(path), withSubfolders, bits);
    }
    ~InotifyFolderWatch() override
    {
        const std::lock_guard<WatchLock> guard(g_watchLock);
        WatchedTrees& trees = WatchedTrees::Get();
        trees.Leave(*m_tree);
        m_tree.reset();
        trees.Queue().ReleaseUnused();
    }

    /// False, with the error in errno, when the folder cannot be watched.
    bool Start()
    {
        const std::lock_guard<WatchLock> guard(g_watchLock);
        WatchedTrees& trees = WatchedTrees::Get();
        const bool started = trees.Join(*m_tree) && m_tree->Start();
        const int error = errno;
        trees.Queue().ReleaseUnused();
        errno = error;
        return started;
    }

    void Collect(const Report& report) override
    {
        {
            const std::lock_guard<WatchLock> guard(g_watchLock);
            WatchedTrees& trees = WatchedTrees::Get();
            trees.Pump();
            m_tree->Refresh();
            trees.Queue().ReleaseUnused();
            m_tree->TakeChanges(m_events);
        }
        try
        {
            std::for_each(m_events.begin(), m_events.end(), report);
        }
        catch (...)
        {
            const std::lock_guard<WatchLock> guard(g_watchLock);
            m_tree->Lose();
            throw;
        }
    }

private:
    std::unique_ptr<FolderTree> m_tree;
    std::vector<FolderEvent> m_events; // which were reported last
};
} // namespace

std::unique_ptr<FolderWatch> FolderWatch::Start(const wchar_t* folder, bool withSubfolders, unsigned bits)
{
    std::string path;
    if (!WidePathToSystem(folder, path) || path.empty())
    {
        errno = ENOENT;
        return nullptr;
    }
    std::error_code failure; // leaves the path empty, at which there is no folder
    path = std::filesystem::absolute(path, failure).string();
    while (path.size() > 1 && path.back() == '/')
        path.pop_back();
    auto watch = std::make_unique<InotifyFolderWatch>(std::move(path), withSubfolders, bits);
    const bool started = watch->Start();
    const int error = errno;
    if (!started)
        watch.reset();
    errno = error;
    return watch;
}
} // namespace tev::platform
