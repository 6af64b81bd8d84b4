#include "platform/posix/watch/FolderTree.h"
#include "platform/Cancellation.h"
#include "platform/posix/watch/WatchLock.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tev::platform
{
namespace
{
constexpr unsigned kWatchContents = kWatchSize | kWatchLastWrite;
// The system reports a changed time of the last write in the same way as changed permissions.
constexpr unsigned kWatchStatus = kWatchAttributes | kWatchLastWrite | kWatchSecurity;

constexpr std::uint32_t kGone = IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED;

unsigned NameBits(bool isFolder) noexcept
{
    return isFolder ? kWatchFolderNames : kWatchFileNames;
}

bool IsFolder(const inotify_event& event) noexcept
{
    return (event.mask & IN_ISDIR) != 0;
}

/// Whether the system has no room for one more watch, as opposed to a folder that cannot be read or is deleted.
bool IsLackOfRoom(int error) noexcept
{
    return error == ENOSPC || error == ENOMEM || error == EMFILE || error == ENFILE;
}

bool IsMissing(int error) noexcept
{
    return error == ENOENT || error == ENOTDIR;
}

bool Exists(const std::string& path) noexcept
{
    struct stat status;
    return lstat(path.c_str(), &status) == 0;
}

bool IsFolderEntry(int descriptor, const dirent& entry)
{
    if (entry.d_type != DT_UNKNOWN)
        return entry.d_type == DT_DIR;
    struct stat status;
    return fstatat(descriptor, entry.d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(status.st_mode);
}
} // namespace

WatchedFolder::~WatchedFolder()
{
    m_tree.m_queue.Unbind(*this);
    if (m_unsettledAt != kSettled)
        m_tree.m_unsettled[m_unsettledAt] = nullptr;
}

std::string WatchedFolder::PathOf(const std::string& name) const
{
    const auto fromTheEnd = [&](const auto& visit) {
        if (!name.empty())
            visit(name);
        for (const WatchedFolder* folder = this; folder != nullptr; folder = folder->m_parent)
        {
            if (!folder->m_name.empty()) // as the root's is
                visit(folder->m_name);
        }
    };
    std::size_t size = 0;
    fromTheEnd([&](const std::string& part) { size += part.size() + (size != 0 ? 1 : 0); });
    std::string path(size, '/');
    std::size_t at = size;
    fromTheEnd([&](const std::string& part) {
        at -= part.size() + (at != size ? 1 : 0);
        part.copy(path.data() + at, part.size());
    });
    return path;
}

bool FolderTree::Start()
{
    auto root = std::make_unique<WatchedFolder>(*this, nullptr, std::string());
    m_identity = Find();
    const bool started = Include(*root, false) && root->m_number >= 0;
    const int error = errno;
    m_isLost = !started;
    m_root = started ? std::move(root) : nullptr;
    root.reset();
    errno = error;
    return started;
}

void FolderTree::Refresh()
{
    if (!m_isLost && Find() != m_identity)
        Lose(); // a folder above was renamed, or a link leads elsewhere, for which the system has no event
    if (m_isLost && (Start() || IsLackOfRoom(errno)))
        m_changes.AddEverything();
}

void FolderTree::Lose() noexcept
{
    m_isLost = true;
    m_changes.AddEverything();
}

void FolderTree::StartInChild() noexcept
{
    Lose();
    EndBatch();
    for (WatchedFolder* folder : m_unsettled) // some may be the reader's, which does not exist here
    {
        if (folder != nullptr)
            folder->m_unsettledAt = WatchedFolder::kSettled;
    }
    m_unsettled.clear();
}

void FolderTree::Handle(WatchedFolder& folder, const EventBatch& batch, std::size_t index)
{
    if (m_isLost)
        return;
    const inotify_event& event = batch[index];
    if ((event.mask & kGone) != 0)
        return HandleGone(folder, event.mask);
    if (event.len == 0)
        return; // the folder itself, which its parent reports
    const std::string name = event.name;
    if ((event.mask & IN_CREATE) != 0)
        HandleCreated(folder, name, IsFolder(event));
    if ((event.mask & IN_DELETE) != 0)
    {
        Add(FolderChange::Removed, NameBits(IsFolder(event)), folder.PathOf(name));
        if (IsFolder(event))
            folder.m_folders.erase(name);
    }
    if ((event.mask & IN_MOVED_FROM) != 0)
        HandleDeparted(folder, batch, index);
    if ((event.mask & IN_MOVED_TO) != 0)
        HandleArrived(folder, batch, index);
    if ((event.mask & IN_MODIFY) != 0)
        Add(FolderChange::Modified, kWatchContents, folder.PathOf(name));
    if ((event.mask & IN_ATTRIB) != 0)
        Add(FolderChange::Modified, kWatchStatus, folder.PathOf(name));
    if ((event.mask & IN_ACCESS) != 0 && !IsFolder(event)) // folders are read here, too
        Add(FolderChange::Modified, kWatchLastAccess, folder.PathOf(name));
}

void FolderTree::HandleGone(WatchedFolder& folder, std::uint32_t mask)
{
    if (&folder == m_root.get() || (mask & IN_UNMOUNT) != 0)
        return Lose();
    if ((mask & IN_IGNORED) == 0)
        return; // the parent reports what happened
    m_queue.Unbind(folder);
    MarkUnsettled(folder);
}

void FolderTree::HandleCreated(WatchedFolder& parent, const std::string& name, bool isFolder)
{
    if (const auto known = parent.m_folders.find(name); isFolder && known != parent.m_folders.end())
    {
        if (known->second->m_number >= 0)
            return MarkUnsettled(*known->second); // found, and reported, when the parent was read
    }
    HandleNew(parent, name, isFolder);
}

void FolderTree::HandleNew(WatchedFolder& parent, const std::string& name, bool isFolder)
{
    Add(FolderChange::Added, NameBits(isFolder) | kWatchCreation, parent.PathOf(name));
    if (isFolder)
        Expect(parent, name);
}

bool FolderTree::HasArrival(const EventBatch& batch, std::size_t departure) const
{
    const std::size_t arrival = batch.ArrivalOf(batch[departure].cookie);
    return arrival != EventBatch::kNone && !OwnFolders(batch[arrival].wd).empty();
}

std::vector<WatchedFolder*> FolderTree::OwnFolders(int number) const
{
    std::vector<WatchedFolder*> folders;
    std::vector<NumberedFolder*> all;
    m_queue.FoldersOf(number, all);
    for (NumberedFolder* numbered : all)
    {
        auto* const folder = static_cast<WatchedFolder*>(numbered);
        if (&folder->m_tree == this)
            folders.push_back(folder);
    }
    return folders;
}

void FolderTree::HandleDeparted(WatchedFolder& parent, const EventBatch& batch, std::size_t index)
{
    const inotify_event& event = batch[index];
    if (std::find(m_done.begin(), m_done.end(), event.cookie) != m_done.end())
        return;
    const std::string name = event.name;
    const std::string path = parent.PathOf(name);
    std::unique_ptr<WatchedFolder> folder = IsFolder(event) ? Detach(parent, name) : nullptr;
    if (HasArrival(batch, index))
        m_departures.push_back({event.cookie, event.wd, name, path, std::move(folder)});
    else
        Add(FolderChange::Removed, NameBits(IsFolder(event)), path);
}

void FolderTree::HandleArrived(WatchedFolder& parent, const EventBatch& batch, std::size_t index)
{
    const inotify_event& event = batch[index];
    if (std::find(m_done.begin(), m_done.end(), event.cookie) != m_done.end())
        return;
    const std::string name = event.name;
    const auto found = std::find_if(m_departures.begin(), m_departures.end(),
                                    [&](const Departure& departure) { return departure.m_cookie == event.cookie; });
    if (found == m_departures.end())
    {
        const std::size_t reverse = ReverseOf(batch, index, nullptr);
        if (reverse != EventBatch::kNone && IsExchange(nullptr, parent, batch, index, reverse))
        {
            HandleDeparted(parent, batch, reverse); // with something in a folder that is not watched
            m_done.push_back(batch[reverse].cookie);
        }
        return HandleNew(parent, name, IsFolder(event));
    }
    Departure departure = std::move(*found);
    m_departures.erase(found);
    const std::size_t reverse = ReverseOf(batch, index, &departure);
    if (reverse != EventBatch::kNone && IsExchange(&departure, parent, batch, index, reverse))
        return HandleExchange(departure, parent, batch, index, reverse);
    AddRename(departure.m_path, parent.PathOf(name), NameBits(IsFolder(event)), false);
    if (!IsFolder(event))
        return;
    if (departure.m_folder != nullptr)
        Attach(std::move(departure.m_folder), parent, name);
    else
        Expect(parent, name);
}

/// The first half of the rename that took the new name's former holder where the new one came from, if such a rename
/// follows; out of the tree where `departure` is null.
std::size_t FolderTree::ReverseOf(const EventBatch& batch, std::size_t arrival, const Departure* departure) const
{
    const inotify_event& event = batch[arrival];
    const std::size_t next = batch.NextRename(arrival, event.wd, departure == nullptr ? event.wd : departure->m_number);
    if (next == EventBatch::kNone || (batch[next].mask & IN_MOVED_FROM) == 0 || batch[next].wd != event.wd ||
        std::strcmp(batch[next].name, event.name) != 0)
        return EventBatch::kNone;
    if (departure == nullptr)
        return HasArrival(batch, next) ? EventBatch::kNone : next;
    const std::size_t end = batch.ArrivalOf(batch[next].cookie);
    const bool isBack =
        end != EventBatch::kNone && batch[end].wd == departure->m_number && departure->m_name == batch[end].name;
    return isBack ? next : EventBatch::kNone;
}

/// Whether a rename and the one back were made in one step, which gives the same events as two steps: then what had the
/// second name has the first one now, else it was replaced.
bool FolderTree::IsExchange(const Departure* departure, WatchedFolder& parent, const EventBatch& batch,
                            std::size_t arrival, std::size_t reverse) const
{
    const bool isFolder = IsFolder(batch[arrival]);
    if (isFolder != IsFolder(batch[reverse]))
        return true; // a file never replaces a folder
    const std::size_t end = std::max(reverse, departure == nullptr ? 0 : batch.ArrivalOf(batch[reverse].cookie));
    const std::string name = batch[arrival].name;
    const auto present = parent.m_folders.find(name);
    const int moved = departure == nullptr || departure->m_folder == nullptr ? -1 : departure->m_folder->m_number;
    const int replaced = !isFolder || present == parent.m_folders.end() ? -1 : present->second->m_number;
    if (moved >= 0 || replaced >= 0)
    {
        const int last = batch.FirstMovedAfter(end, moved, replaced);
        return last < 0 ? moved >= 0 : last == replaced;
    }
    // Where later events are about the name, they decide what becomes of it.
    return batch.IsNamedAfter(end, batch[arrival].wd, name) || Exists(SystemPath(parent.PathOf(name)));
}

void FolderTree::HandleExchange(Departure& departure, WatchedFolder& parent, const EventBatch& batch,
                                std::size_t arrival, std::size_t reverse)
{
    const std::string name = batch[arrival].name;
    m_done.push_back(batch[reverse].cookie);
    AddRename(departure.m_path, parent.PathOf(name),
              NameBits(IsFolder(batch[arrival])) | NameBits(IsFolder(batch[reverse])), true);
    std::unique_ptr<WatchedFolder> other = IsFolder(batch[reverse]) ? Detach(parent, name) : nullptr;
    if (departure.m_folder != nullptr)
        Attach(std::move(departure.m_folder), parent, name);
    else if (IsFolder(batch[arrival]))
        Expect(parent, name);
    const std::vector<WatchedFolder*> formers = OwnFolders(departure.m_number);
    if (formers.empty())
        return;
    if (other != nullptr)
        Attach(std::move(other), *formers.front(), departure.m_name);
    else if (IsFolder(batch[reverse]))
        Expect(*formers.front(), departure.m_name);
}

std::unique_ptr<WatchedFolder> FolderTree::Detach(WatchedFolder& parent, const std::string& name)
{
    const auto child = parent.m_folders.find(name);
    if (child == parent.m_folders.end())
        return nullptr;
    std::unique_ptr<WatchedFolder> folder = std::move(child->second);
    folder->m_name = parent.PathOf(name);
    folder->m_parent = nullptr;
    parent.m_folders.erase(child);
    return folder;
}

void FolderTree::Attach(std::unique_ptr<WatchedFolder> folder, WatchedFolder& parent, const std::string& name)
{
    for (const WatchedFolder* above = &parent; above != nullptr; above = above->m_parent)
    {
        if (above == folder.get()) // the tree is wrong: nothing moves into itself
            return Lose();
    }
    folder->m_parent = &parent;
    folder->m_name = name;
    WatchedFolder& attached = *folder;
    parent.m_folders[name] = std::move(folder);
    MarkUnsettled(attached);
}

void FolderTree::Expect(WatchedFolder& parent, const std::string& name)
{
    if (!m_withSubfolders)
        return;
    std::unique_ptr<WatchedFolder>& folder = parent.m_folders[name];
    folder = std::make_unique<WatchedFolder>(*this, &parent, name);
    MarkUnsettled(*folder);
}

void FolderTree::MarkUnsettled(WatchedFolder& folder)
{
    if (folder.m_unsettledAt != WatchedFolder::kSettled)
        return;
    m_unsettled.push_back(&folder);
    folder.m_unsettledAt = m_unsettled.size() - 1;
}

void FolderTree::EndBatch() noexcept
{
    m_departures.clear();
    m_done.clear();
}

bool FolderTree::Settle(const EventBatch& batch, bool isFirst)
{
    if (m_isLost)
        return true;
    const bool hasRenames = batch.HasRenamedFolders();
    const std::size_t count = m_unsettled.size(); // without what is watched now
    for (std::size_t i = 0; i < count && !m_isLost; ++i)
    {
        WatchedFolder* const folder = m_unsettled[i];
        if (folder == nullptr)
            continue;
        const bool isSettled = folder->m_isFresh && !hasRenames ? isFirst : SettleFolder(*folder);
        if (!isSettled || m_unsettled[i] == nullptr)
            continue;
        folder->m_isFresh = false;
        folder->m_unsettledAt = WatchedFolder::kSettled;
        m_unsettled[i] = nullptr;
    }
    m_unsettled.erase(std::remove(m_unsettled.begin(), m_unsettled.end(), nullptr), m_unsettled.end());
    for (std::size_t i = 0; i < m_unsettled.size(); ++i)
        m_unsettled[i]->m_unsettledAt = i;
    const bool isExplained = std::all_of(m_unsettled.begin(), m_unsettled.end(),
                                         [](const WatchedFolder* folder) { return folder->m_isFresh; });
    if (batch.Size() == 0 && !isExplained)
        Lose();
    return m_isLost || (isExplained && !hasRenames);
}

/// Whether the folder is what is at its path, or is gone; a new one is watched, which is settled later.
bool FolderTree::SettleFolder(WatchedFolder& folder)
{
    if (folder.m_number < 0)
    {
        if (!Include(folder, true))
            Lose();
        return false;
    }
    const int number = NumberOf(folder);
    if (number < 0 && IsLackOfRoom(errno))
        Lose();
    return number == folder.m_number || (number < 0 && !IsMissing(errno)); // else it may not be read any more
}

/// Watches a new folder and all beneath; `report` reports what is in them. Those that are not at their paths stay
/// unsettled, those that may not be read are removed. False, with the error in errno, for lack of room.
bool FolderTree::Include(WatchedFolder& folder, bool report)
{
    std::vector<WatchedFolder*> waiting{&folder};
    while (!waiting.empty())
    {
        g_watchLock.LetForksPass();
        WatchedFolder& next = *waiting.back();
        waiting.pop_back();
        if (Watch(next, report, waiting))
            continue;
        const int error = errno;
        if (IsLackOfRoom(error))
            return false;
        if (IsMissing(error))
            MarkUnsettled(next);
        else
            Remove(next);
        errno = error;
    }
    return true;
}

/// False with the error in errno.
bool FolderTree::Watch(WatchedFolder& folder, bool report, std::vector<WatchedFolder*>& found)
{
    const WithoutCancellation whole;
    const std::string path = SystemPath(folder.PathOf(std::string()));
    const int links = folder.m_parent == nullptr ? 0 : O_NOFOLLOW;
    const int descriptor = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC | links);
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(descriptor < 0 ? nullptr : fdopendir(descriptor), closedir);
    if (directory == nullptr)
    {
        const int error = errno;
        if (descriptor >= 0)
            close(descriptor);
        errno = error;
        return false;
    }
    // By the descriptor, because another folder may be at the path by now.
    const std::string opened = "/proc/self/fd/" + std::to_string(descriptor);
    int number = m_queue.NumberOf(opened.c_str(), SystemMask());
    if (number < 0 && IsMissing(errno))
        number = NumberOf(folder); // there is no /proc
    if (number < 0)
        return false;
    m_queue.Bind(folder, number);
    folder.m_isFresh = true;
    MarkUnsettled(folder);
    // Watched before it is read: what is created meanwhile is then found twice, and not never.
    if (m_withSubfolders || report)
        Read(folder, *directory, report, found);
    return true;
}

void FolderTree::Read(WatchedFolder& folder, DIR& directory, bool report, std::vector<WatchedFolder*>& found)
{
    const WithoutCancellation whole;
    while (const dirent* entry = readdir(&directory))
    {
        g_watchLock.LetForksPass();
        const std::string name = entry->d_name;
        if (name == "." || name == "..")
            continue;
        const bool isFolder = IsFolderEntry(dirfd(&directory), *entry);
        if (report)
            Add(FolderChange::Added, NameBits(isFolder) | kWatchCreation, folder.PathOf(name));
        if (!isFolder || !m_withSubfolders)
            continue;
        std::unique_ptr<WatchedFolder>& child = folder.m_folders[name];
        if (child != nullptr)
            continue; // a name that is deleted and created meanwhile may be read twice
        child = std::make_unique<WatchedFolder>(*this, &folder, name);
        found.push_back(child.get());
    }
}

void FolderTree::Remove(WatchedFolder& folder)
{
    if (folder.m_parent != nullptr)
        folder.m_parent->m_folders.erase(std::string(folder.m_name));
}

int FolderTree::NumberOf(const WatchedFolder& folder) const
{
    const std::uint32_t links = folder.m_parent == nullptr ? 0U : IN_DONT_FOLLOW;
    return m_queue.NumberOf(SystemPath(folder.PathOf(std::string())).c_str(), SystemMask() | links);
}

void FolderTree::Add(FolderChange change, unsigned bits, const std::string& path)
{
    if ((m_bits & bits) != 0)
        m_changes.Add(change, path);
}

void FolderTree::AddRename(const std::string& from, const std::string& to, unsigned bits, bool isExchange)
{
    if ((m_bits & bits) != 0)
        m_changes.AddRename(from, to, isExchange);
}

/// Of a path relative to the root.
std::string FolderTree::SystemPath(const std::string& path) const
{
    if (path.empty())
        return m_path;
    return (m_path == "/" ? m_path : m_path + '/') + path;
}

std::uint32_t FolderTree::SystemMask() const noexcept
{
    std::uint32_t mask = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF;
    mask |= (m_bits & kWatchContents) != 0 ? IN_MODIFY : 0U;
    mask |= (m_bits & kWatchStatus) != 0 ? IN_ATTRIB : 0U;
    mask |= (m_bits & kWatchLastAccess) != 0 ? IN_ACCESS : 0U;
    return mask;
}

/// The folder at the path of the root, if any.
FolderTree::Identity FolderTree::Find() const
{
    struct stat status;
    if (stat(m_path.c_str(), &status) != 0)
        return std::nullopt;
    return std::make_pair(status.st_dev, status.st_ino);
}
} // namespace tev::platform
