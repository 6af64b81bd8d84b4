// Events of a tree of folders, compared with a loop that only reads the system's queue and composes the paths.

#include "services/CWatchFolder.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <unordered_map>
#include <vector>

#include <fcntl.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace
{
namespace fs = std::filesystem;

constexpr int kEvents = 80; // fit into the buffer of a watch

/// A tree of `count` folders in two levels.
class Tree
{
public:
    explicit Tree(int count)
    {
        std::string name = (fs::temp_directory_path() / "tevtools-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr)
            std::abort();
        m_root = name;
        for (int i = 1; i < count; ++i)
        {
            m_folders.push_back(m_root / std::to_string(i / 100) / std::to_string(i));
            fs::create_directories(m_folders.back());
        }
    }
    ~Tree() { fs::remove_all(m_root); }
    Tree(const Tree&) = delete;
    Tree& operator=(const Tree&) = delete;

    const fs::path& Root() const { return m_root; }
    /// Creates files in different folders.
    void Change()
    {
        for (int i = 0; i < kEvents; ++i)
        {
            const fs::path path = m_folders[m_next % m_folders.size()] / std::to_string(m_next);
            ++m_next;
            close(open(path.c_str(), O_CREAT | O_WRONLY, 0600));
        }
    }

private:
    fs::path m_root;
    std::vector<fs::path> m_folders;
    std::size_t m_next = 0;
};

class PlainLoop
{
public:
    explicit PlainLoop(const fs::path& root) : m_queue(inotify_init1(IN_NONBLOCK))
    {
        Watch(root);
        for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root))
        {
            if (entry.is_directory())
                Watch(entry.path());
        }
    }
    ~PlainLoop() { close(m_queue); }
    PlainLoop(const PlainLoop&) = delete;
    PlainLoop& operator=(const PlainLoop&) = delete;

    int Collect()
    {
        alignas(inotify_event) char buffer[16384];
        int found = 0;
        for (ssize_t size = read(m_queue, buffer, sizeof buffer); size > 0; size = read(m_queue, buffer, sizeof buffer))
        {
            for (const char* position = buffer; position < buffer + size;)
            {
                const auto& event = *reinterpret_cast<const inotify_event*>(position);
                m_changes[m_folders[event.wd] + "/" + event.name] = event.mask;
                ++found;
                position += sizeof event + event.len;
            }
        }
        m_changes.clear();
        return found;
    }

private:
    void Watch(const fs::path& folder) { m_folders[inotify_add_watch(m_queue, folder.c_str(), IN_CREATE)] = folder; }

    int m_queue;
    std::unordered_map<int, std::string> m_folders;
    std::unordered_map<std::string, unsigned> m_changes;
};

bool WatchTree(CWatchFolder& watcher, const Tree& tree)
{
    return watcher.AddRefreshNotification(tree.Root().wstring().c_str(), true, CWatchFolder::kFileNames);
}

void CollectOurs(benchmark::State& state)
{
    Tree tree(1000);
    CWatchFolder watcher;
    WatchTree(watcher, tree);
    for (auto _ : state)
    {
        state.PauseTiming();
        tree.Change();
        state.ResumeTiming();
        watcher.CheckRefreshNotification();
        if (watcher.GetChanges().GetCount() != kEvents)
            state.SkipWithError("events were lost");
        watcher.ReleaseChanges();
    }
    state.SetItemsProcessed(state.iterations() * kEvents);
}
BENCHMARK(CollectOurs)->Name("WatchFolder/collect/ours")->Iterations(300);

void CollectPlain(benchmark::State& state)
{
    Tree tree(1000);
    PlainLoop loop(tree.Root());
    for (auto _ : state)
    {
        state.PauseTiming();
        tree.Change();
        state.ResumeTiming();
        if (loop.Collect() != kEvents)
            state.SkipWithError("events were lost");
    }
    state.SetItemsProcessed(state.iterations() * kEvents);
}
BENCHMARK(CollectPlain)->Name("WatchFolder/collect/plain_loop")->Iterations(300);

void StartOurs(benchmark::State& state)
{
    const Tree tree(10000);
    for (auto _ : state)
    {
        CWatchFolder watcher;
        benchmark::DoNotOptimize(WatchTree(watcher, tree));
    }
}
BENCHMARK(StartOurs)->Name("WatchFolder/watch_10000/ours")->Unit(benchmark::kMillisecond);

void StartPlain(benchmark::State& state)
{
    const Tree tree(10000);
    for (auto _ : state)
        PlainLoop loop(tree.Root());
}
BENCHMARK(StartPlain)->Name("WatchFolder/watch_10000/plain_loop")->Unit(benchmark::kMillisecond);
} // namespace
