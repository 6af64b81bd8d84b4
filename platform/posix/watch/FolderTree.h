#pragma once

#include "platform/ChangeBuffer.h"
#include "platform/FolderWatch.h"
#include "platform/posix/watch/InotifyQueue.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <dirent.h>
#include <sys/types.h>

namespace tev::platform
{
class FolderTree;

/// A folder of a tree. The system's number stands for the folder itself, whatever its path is, and stays bound to it until
/// the system says that it is deleted (IN_IGNORED).
struct WatchedFolder : NumberedFolder
{
    static constexpr std::size_t kSettled = ~std::size_t{0};

    WatchedFolder(FolderTree& tree, WatchedFolder* parent, std::string name)
        : m_tree(tree), m_parent(parent), m_name(std::move(name))
    {
    }
    ~WatchedFolder();
    WatchedFolder(const WatchedFolder&) = delete;
    WatchedFolder& operator=(const WatchedFolder&) = delete;

    /// Of something in the folder, relative to the root of the tree.
    std::string PathOf(const std::string& name) const;

    FolderTree& m_tree;
    WatchedFolder* m_parent; ///< null for the root, and while the folder is between the two halves of a rename
    std::string m_name;      ///< without a parent the path; that of the root is empty
    std::size_t m_unsettledAt = kSettled; ///< index in the tree's list
    bool m_isFresh = false;               ///< watched since the last batch
    std::map<std::string, std::unique_ptr<WatchedFolder>> m_folders;
};

/// The folders of one watch. Events are applied in their order without looking at the disk, where later events may have
/// happened already. What is new then, or was renamed, is unsettled: after the batch, new folders are watched and read at
/// the paths that they have by then, and renamed ones are compared with the disk; new ones too, at the next poll, if
/// folders were renamed meanwhile, since the event of a rename may come later than its effect. Where no event explains a
/// difference, the tree is given up: everything is reported, and it is read again. That takes renames at the very moment
/// of a poll.
/// Used with the lock of all watches held.
class FolderTree
{
public:
    /// The path is absolute, without a separator at its end unless it is the root.
    FolderTree(InotifyQueue& queue, std::string path, bool withSubfolders, unsigned bits)
        : m_queue(queue), m_path(std::move(path)), m_withSubfolders(withSubfolders), m_bits(bits)
    {
    }
    FolderTree(const FolderTree&) = delete;
    FolderTree& operator=(const FolderTree&) = delete;

    /// Watches the folder at the path with all beneath. False, with the error in errno, when it cannot be watched or a folder
    /// beneath is more than the system's limit allows; the tree is empty and given up then.
    bool Start();
    /// Starts again where the tree was given up or another folder is at its path.
    void Refresh();
    void Handle(WatchedFolder& folder, const EventBatch& batch, std::size_t index);
    /// Between two batches: what the first left incomplete cannot be completed.
    void EndBatch() noexcept;
    /// Settles what is unsettled after a batch, which may be empty, the first of a poll or a later one. False when another
    /// batch is needed for that.
    bool Settle(const EventBatch& batch, bool isFirst);
    /// Gives the tree up until it is started again.
    void Lose() noexcept;
    /// As Lose, in a child made by fork, also in the middle of anything that lets forks pass. The queue is closed.
    void StartInChild() noexcept;
    void TakeChanges(std::vector<FolderEvent>& events) { m_changes.Take(events); }

private:
    friend struct WatchedFolder;

    using Identity = std::optional<std::pair<dev_t, ino_t>>;

    /// The first half of a rename, until the second one is handled.
    struct Departure
    {
        std::uint32_t m_cookie;
        int m_number; ///< of the folder that it left
        std::string m_name;
        std::string m_path;
        std::unique_ptr<WatchedFolder> m_folder; ///< null for a file, and for a folder that is not watched
    };

    void HandleGone(WatchedFolder& folder, std::uint32_t mask);
    void HandleCreated(WatchedFolder& parent, const std::string& name, bool isFolder);
    void HandleArrived(WatchedFolder& parent, const EventBatch& batch, std::size_t index);
    void HandleDeparted(WatchedFolder& parent, const EventBatch& batch, std::size_t index);
    /// The folders of this tree with that number.
    std::vector<WatchedFolder*> OwnFolders(int number) const;
    /// Whether the other half of a rename is in this tree.
    bool HasArrival(const EventBatch& batch, std::size_t departure) const;
    std::size_t ReverseOf(const EventBatch& batch, std::size_t arrival, const Departure* departure) const;
    bool IsExchange(const Departure* departure, WatchedFolder& parent, const EventBatch& batch, std::size_t arrival,
                    std::size_t reverse) const;
    void HandleExchange(Departure& departure, WatchedFolder& parent, const EventBatch& batch, std::size_t arrival,
                        std::size_t reverse);
    void HandleNew(WatchedFolder& parent, const std::string& name, bool isFolder);
    void Attach(std::unique_ptr<WatchedFolder> folder, WatchedFolder& parent, const std::string& name);
    std::unique_ptr<WatchedFolder> Detach(WatchedFolder& parent, const std::string& name);
    /// A folder of that name is new and must be watched and read.
    void Expect(WatchedFolder& parent, const std::string& name);
    void MarkUnsettled(WatchedFolder& folder);
    bool SettleFolder(WatchedFolder& folder);

    bool Include(WatchedFolder& folder, bool report);
    bool Watch(WatchedFolder& folder, bool report, std::vector<WatchedFolder*>& found);
    void Read(WatchedFolder& folder, DIR& directory, bool report, std::vector<WatchedFolder*>& found);
    void Remove(WatchedFolder& folder);
    int NumberOf(const WatchedFolder& folder) const;
    void Add(FolderChange change, unsigned bits, const std::string& path);
    void AddRename(const std::string& from, const std::string& to, unsigned bits, bool isExchange);
    std::string SystemPath(const std::string& path) const;
    std::uint32_t SystemMask() const noexcept;
    Identity Find() const;

    InotifyQueue& m_queue;
    std::string m_path;
    bool m_withSubfolders;
    unsigned m_bits;
    bool m_isLost = false;
    Identity m_identity; // of the root
    ChangeBuffer m_changes;
    std::vector<WatchedFolder*> m_unsettled; // null where the folder was destroyed
    std::vector<std::uint32_t> m_done;       // cookies of renames that are handled already
    // Folders use the members above when they are destroyed.
    std::vector<Departure> m_departures;
    std::unique_ptr<WatchedFolder> m_root;
};
} // namespace tev::platform
