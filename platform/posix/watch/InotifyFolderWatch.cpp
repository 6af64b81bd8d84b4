#include "platform/FolderWatch.h"

#include "platform/PathNames.h"
#include "platform/posix/watch/ChangeBuffer.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <system_error>
#include <unordered_map>
#include <utility>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tev::platform
{
namespace
{
constexpr unsigned kWatchContents = kWatchSize | kWatchLastWrite;
// The system tells of a changed time of the last write in the same way as of changed permissions.
constexpr unsigned kWatchStatus = kWatchAttributes | kWatchLastWrite | kWatchSecurity;

constexpr std::uint32_t kGone = IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED;

class Watch;

/// A folder that the system watches for one Watch. Its number is the system's for the folder itself, whatever its name.
struct Folder
{
    Folder(Watch& watch, Folder* parent, std::string name) : m_watch(watch), m_parent(parent), m_name(std::move(name))
    {
    }
    ~Folder();
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    /// Of something in the folder, relative to the folder that the Watch was started for.
    std::string PathOf(const std::string& name) const;

    Watch& m_watch;
    Folder* m_parent;
    std::string m_name;
    int m_number = -1;
    bool m_isTold = false; // what was in it when it was looked into
    std::map<std::string, std::unique_ptr<Folder>> m_folders;
};

/// The first half of a rename, until the second one comes.
struct Departure
{
    std::uint32_t m_cookie;
    Watch* m_watch;
    std::string m_path;
    bool m_isFolder;
    bool m_isTold;                    // that it went, because something else has its path now
    std::unique_ptr<Folder> m_folder; // null for a file, and where folders beneath are not watched
};

/// The one queue of the process: the system allows each user few of them. Whoever asks for news takes everybody's off it.
/// All members are called with the mutex held.
class Queue
{
public:
    static Queue& Get()
    {
        static Queue* const queue = new Queue; // never destroyed: a watch may live as long as the process
        return *queue;
    }

    Queue();

    bool Join(Watch& watch);
    void Leave(Watch& watch);
    /// Has the system watch a folder from now on, with all beneath that belong to the watch. `report` tells of what is
    /// there. False, with the error in errno, when the folder itself or one beneath it cannot be watched for lack of room.
    bool Include(Folder& folder, bool report);
    void Release(const Folder& folder);
    void Pump();

    std::mutex m_mutex;

private:
    bool Open();
    void StartAnew();
    int NumberOf(const Folder& folder) const;
    bool Register(Folder& folder);
    bool Scan(Folder& folder, bool report, std::vector<Folder*>& found);
    std::size_t ReadEvents();
    void Handle(const inotify_event& event);
    void HandleFor(Folder& folder, const inotify_event& event);
    void HandleGone(Folder& folder, std::uint32_t mask);
    void Enter(Folder& parent, const std::string& name, bool isNew);
    void Arrive(Folder& folder, const std::string& name, bool isFolder, std::uint32_t cookie);
    void TellDeparture(const Folder& folder, const std::string& name);
    void EndDepartures();
    bool IsRegistered(int number, const Folder* folder) const;

    int m_descriptor = -1;
    std::vector<Watch*> m_watches;
    std::unordered_multimap<int, Folder*> m_folders; // by their numbers
    std::vector<Departure> m_departures;
};

class Watch final : public FolderWatch
{
public:
    Watch(std::string path, bool withSubfolders, unsigned bits)
        : m_path(std::move(path)), m_withSubfolders(withSubfolders), m_bits(bits)
    {
    }
    ~Watch() override;

    /// With the mutex of the queue held. False, with the error in errno, when the folder cannot be watched.
    bool Restart();
    void Collect(const Report& report) override;

    void Add(FolderChange change, unsigned bits, const std::string& path);
    void AddRename(const std::string& from, const std::string& to, unsigned bits);
    /// What the system tells is not enough any more.
    void Lose();

    std::string SystemPath(const Folder& folder) const;
    bool WithSubfolders() const noexcept { return m_withSubfolders; }
    bool IsRoot(const Folder& folder) const noexcept { return &folder == m_root.get(); }
    std::uint32_t SystemMask() const noexcept;

private:
    using Identity = std::optional<std::pair<dev_t, ino_t>>;

    /// The folder that lies at the path now, if any.
    Identity Find() const;

    std::string m_path; // absolute, without a separator at its end unless it is the root
    bool m_withSubfolders;
    unsigned m_bits;
    std::unique_ptr<Folder> m_root;
    Identity m_identity; // of the root
    bool m_isLost = false;
    ChangeBuffer m_changes;
};

unsigned NameBits(bool isFolder) noexcept
{
    return isFolder ? kWatchFolderNames : kWatchFileNames;
}

/// Whether the system has no room for one more watch, as opposed to a folder that cannot be read or is gone.
bool IsLackOfRoom(int error) noexcept
{
    return error == ENOSPC || error == ENOMEM || error == EMFILE || error == ENFILE;
}

Folder::~Folder()
{
    Queue::Get().Release(*this);
}

std::string Folder::PathOf(const std::string& name) const
{
    std::vector<const std::string*> names{&name};
    for (const Folder* folder = this; !folder->m_name.empty(); folder = folder->m_parent)
    {
        names.push_back(&folder->m_name);
        if (folder->m_parent == nullptr)
            break;
    }
    std::string path;
    for (auto part = names.rbegin(); part != names.rend(); ++part)
    {
        if (!path.empty() && !(*part)->empty())
            path += '/';
        path += **part;
    }
    return path;
}

// A child made by fork shares the parent's queue, and would take its news and end its watches: it makes one of its own.
Queue::Queue()
{
    pthread_atfork([] { Get().m_mutex.lock(); }, [] { Get().m_mutex.unlock(); },
                   [] {
                       Get().StartAnew();
                       Get().m_mutex.unlock();
                   });
}

void Queue::StartAnew()
{
    if (m_descriptor >= 0)
        close(m_descriptor);
    m_descriptor = -1;
    m_folders.clear();
    for (Watch* watch : m_watches)
        watch->Lose();
}

bool Queue::Open()
{
    if (m_descriptor < 0)
        m_descriptor = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    return m_descriptor >= 0;
}

bool Queue::Join(Watch& watch)
{
    if (!Open())
        return false;
    m_watches.push_back(&watch);
    return true;
}

void Queue::Leave(Watch& watch)
{
    m_watches.erase(std::remove(m_watches.begin(), m_watches.end(), &watch), m_watches.end());
    if (m_watches.empty() && m_descriptor >= 0)
    {
        close(m_descriptor); // which ends all that the system watches at once
        m_descriptor = -1;
    }
}

/// The system's number of what lies at the folder's path, which it watches from then on; -1 with the error in errno.
int Queue::NumberOf(const Folder& folder) const
{
    const std::uint32_t links = folder.m_parent == nullptr ? 0U : IN_DONT_FOLLOW;
    return inotify_add_watch(m_descriptor, folder.m_watch.SystemPath(folder).c_str(),
                             folder.m_watch.SystemMask() | IN_MASK_ADD | IN_ONLYDIR | IN_EXCL_UNLINK | links);
}

bool Queue::Register(Folder& folder)
{
    folder.m_number = NumberOf(folder);
    if (folder.m_number < 0)
        return false;
    m_folders.emplace(folder.m_number, &folder);
    return true;
}

void Queue::Release(const Folder& folder)
{
    if (folder.m_number < 0)
        return;
    const auto [first, last] = m_folders.equal_range(folder.m_number);
    const auto own = std::find_if(first, last, [&](const auto& entry) { return entry.second == &folder; });
    if (own == last)
        return; // the queue is another one by now
    m_folders.erase(own);
    if (m_descriptor >= 0 && m_folders.count(folder.m_number) == 0)
        inotify_rm_watch(m_descriptor, folder.m_number);
}

bool Queue::IsRegistered(int number, const Folder* folder) const
{
    const auto [first, last] = m_folders.equal_range(number);
    return std::any_of(first, last, [&](const auto& entry) { return entry.second == folder; });
}

bool IsFolderEntry(int descriptor, const dirent& entry)
{
    if (entry.d_type != DT_UNKNOWN)
        return entry.d_type == DT_DIR;
    struct stat status;
    return fstatat(descriptor, entry.d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(status.st_mode);
}

bool Queue::Scan(Folder& folder, bool report, std::vector<Folder*>& found)
{
    Watch& watch = folder.m_watch;
    if (!watch.WithSubfolders() && !report)
        return true;
    folder.m_isTold = report;
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(watch.SystemPath(folder).c_str()), closedir);
    if (directory == nullptr)
        return !IsLackOfRoom(errno); // else it went, or may not be read
    while (const dirent* entry = readdir(directory.get()))
    {
        const std::string name = entry->d_name;
        if (name == "." || name == "..")
            continue;
        const bool isFolder = IsFolderEntry(dirfd(directory.get()), *entry);
        if (report)
            watch.Add(FolderChange::Added, NameBits(isFolder) | kWatchCreation, folder.PathOf(name));
        if (!isFolder || !watch.WithSubfolders())
            continue;
        std::unique_ptr<Folder>& child = folder.m_folders[name];
        if (child != nullptr)
            continue; // a name that goes and comes meanwhile may be read twice
        child = std::make_unique<Folder>(watch, &folder, name);
        found.push_back(child.get());
    }
    return true;
}

bool Queue::Include(Folder& folder, bool report)
{
    std::vector<Folder*> waiting{&folder};
    while (!waiting.empty())
    {
        Folder& next = *waiting.back();
        waiting.pop_back();
        // Watched before it is looked into: what is created meanwhile is then told twice, and not never.
        if (Register(next))
        {
            if (!Scan(next, report, waiting))
                return false;
        }
        else if (&next == &folder || IsLackOfRoom(errno))
        {
            return false;
        }
        else
        {
            next.m_parent->m_folders.erase(std::string(next.m_name));
        }
    }
    return true;
}

std::size_t Queue::ReadEvents()
{
    alignas(inotify_event) char buffer[16384];
    const ssize_t size = read(m_descriptor, buffer, sizeof buffer);
    if (size <= 0)
        return 0;
    for (const char* position = buffer; position < buffer + size;)
    {
        const auto& event = *reinterpret_cast<const inotify_event*>(position);
        Handle(event);
        position += sizeof event + event.len;
    }
    return static_cast<std::size_t>(size);
}

void Queue::Pump()
{
    // No more than what waits now, or somebody who never stops writing would keep us here.
    int waiting = 0;
    if (!Open() || ioctl(m_descriptor, FIONREAD, &waiting) != 0)
        return;
    auto rest = static_cast<std::size_t>(waiting);
    while (rest != 0)
    {
        const std::size_t size = ReadEvents();
        if (size == 0)
            break;
        rest -= std::min(rest, size);
    }
    if (!m_departures.empty())
        ReadEvents(); // the second half of a rename comes right behind the first
    EndDepartures();
}

void Queue::Handle(const inotify_event& event)
{
    if ((event.mask & IN_Q_OVERFLOW) != 0)
    {
        for (Watch* watch : m_watches)
            watch->Lose();
        return;
    }
    const auto [first, last] = m_folders.equal_range(event.wd);
    if (first == last)
        return;
    if (std::next(first) == last)
        return HandleFor(*first->second, event);
    std::vector<Folder*> folders;
    for (auto entry = first; entry != last; ++entry)
        folders.push_back(entry->second);
    for (Folder* folder : folders)
    {
        if (IsRegistered(event.wd, folder))
            HandleFor(*folder, event);
    }
}

void Queue::HandleGone(Folder& folder, std::uint32_t mask)
{
    if (folder.m_watch.IsRoot(folder))
        folder.m_watch.Lose();
    else if ((mask & IN_IGNORED) != 0 && folder.m_parent != nullptr)
        folder.m_parent->m_folders.erase(std::string(folder.m_name));
    // Else the folder above tells what became of it.
}

void Queue::HandleFor(Folder& folder, const inotify_event& event)
{
    if ((event.mask & kGone) != 0)
        return HandleGone(folder, event.mask);
    if (event.len == 0)
        return; // the folder itself, of which the one above it tells
    const std::string name = event.name;
    const bool isFolder = (event.mask & IN_ISDIR) != 0;
    Watch& watch = folder.m_watch;
    if ((event.mask & IN_CREATE) != 0)
    {
        TellDeparture(folder, name);
        watch.Add(FolderChange::Added, NameBits(isFolder) | kWatchCreation, folder.PathOf(name));
        if (isFolder)
            Enter(folder, name, true);
    }
    if ((event.mask & IN_DELETE) != 0)
    {
        watch.Add(FolderChange::Removed, NameBits(isFolder), folder.PathOf(name));
        folder.m_folders.erase(name);
    }
    if ((event.mask & IN_MOVED_FROM) != 0)
    {
        Departure departure{event.cookie, &watch, folder.PathOf(name), isFolder, false, nullptr};
        const auto child = folder.m_folders.find(name);
        if (child != folder.m_folders.end())
        {
            departure.m_folder = std::move(child->second);
            departure.m_folder->m_parent = nullptr;
            departure.m_folder->m_name = departure.m_path;
            folder.m_folders.erase(child);
        }
        m_departures.push_back(std::move(departure));
    }
    if ((event.mask & IN_MOVED_TO) != 0)
        Arrive(folder, name, isFolder, event.cookie);
    if ((event.mask & IN_MODIFY) != 0)
        watch.Add(FolderChange::Modified, kWatchContents, folder.PathOf(name));
    if ((event.mask & IN_ATTRIB) != 0)
        watch.Add(FolderChange::Modified, kWatchStatus, folder.PathOf(name));
    if ((event.mask & IN_ACCESS) != 0)
        watch.Add(FolderChange::Modified, kWatchLastAccess, folder.PathOf(name));
}

/// A folder that came up or was renamed; what is in a new one is reported. A renamed one is looked into again as well: what
/// was created in it could not be reached any more when its old name was all that was known.
void Queue::Enter(Folder& parent, const std::string& name, bool isNew)
{
    if (!parent.m_watch.WithSubfolders())
        return;
    std::unique_ptr<Folder>& child = parent.m_folders[name];
    if (isNew && child != nullptr && child->m_isTold && NumberOf(*child) == child->m_number)
        return; // found already, when the folder above was looked into
    auto entered = std::make_unique<Folder>(parent.m_watch, &parent, name);
    const bool included = Include(*entered, isNew);
    const int error = errno;
    // The former one of that name goes only now, so that the system goes on watching where both are the same folder.
    child = std::move(entered);
    if (included)
        return;
    parent.m_folders.erase(name);
    if (IsLackOfRoom(error))
        parent.m_watch.Lose();
}

void Queue::Arrive(Folder& folder, const std::string& name, bool isFolder, std::uint32_t cookie)
{
    Watch& watch = folder.m_watch;
    TellDeparture(folder, name);
    const auto departure = std::find_if(m_departures.begin(), m_departures.end(), [&](const Departure& candidate) {
        return candidate.m_cookie == cookie && candidate.m_watch == &watch;
    });
    if (departure == m_departures.end())
    {
        watch.Add(FolderChange::Added, NameBits(isFolder) | kWatchCreation, folder.PathOf(name));
        if (isFolder)
            Enter(folder, name, true);
        return;
    }
    watch.AddRename(departure->m_path, folder.PathOf(name), NameBits(isFolder));
    if (isFolder)
        Enter(folder, name, false);
    m_departures.erase(departure); // only now, so that the system goes on watching all the time
}

/// What had the name before, if it moved away, went before something else comes there.
void Queue::TellDeparture(const Folder& folder, const std::string& name)
{
    if (m_departures.empty())
        return;
    const std::string path = folder.PathOf(name);
    for (Departure& departure : m_departures)
    {
        if (departure.m_watch != &folder.m_watch || departure.m_path != path || departure.m_isTold)
            continue;
        departure.m_watch->Add(FolderChange::Removed, NameBits(departure.m_isFolder), path);
        departure.m_isTold = true;
    }
}

/// What moved away without a second half has left the watched folders.
void Queue::EndDepartures()
{
    for (const Departure& departure : m_departures)
    {
        if (!departure.m_isTold)
            departure.m_watch->Add(FolderChange::Removed, NameBits(departure.m_isFolder), departure.m_path);
    }
    m_departures.clear();
}

Watch::~Watch()
{
    Queue& queue = Queue::Get();
    const std::lock_guard<std::mutex> guard(queue.m_mutex);
    queue.Leave(*this);
    m_root.reset();
}

bool Watch::Restart()
{
    auto root = std::make_unique<Folder>(*this, nullptr, std::string());
    m_identity = Find();
    const bool included = Queue::Get().Include(*root, false);
    const int error = errno;
    // Where it is the same folder as before, the system goes on watching it.
    m_root = included ? std::move(root) : nullptr;
    m_isLost = !included;
    root.reset();
    errno = error;
    return included;
}

Watch::Identity Watch::Find() const
{
    struct stat status;
    if (stat(m_path.c_str(), &status) != 0)
        return std::nullopt;
    return std::make_pair(status.st_dev, status.st_ino);
}

void Watch::Collect(const Report& report)
{
    std::vector<ChangeBuffer::Change> changes;
    {
        Queue& queue = Queue::Get();
        const std::lock_guard<std::mutex> guard(queue.m_mutex);
        queue.Pump();
        if (!m_isLost && Find() != m_identity)
            Lose(); // a folder above was renamed, or a link leads elsewhere, of which the system tells nothing
        if (m_isLost && (Restart() || IsLackOfRoom(errno)))
            m_changes.AddEverything();
        changes = m_changes.Take();
    }
    for (const ChangeBuffer::Change& change : changes)
        report(change.m_change, change.m_path);
}

void Watch::Add(FolderChange change, unsigned bits, const std::string& path)
{
    if ((m_bits & bits) != 0)
        m_changes.Add(change, path);
}

void Watch::AddRename(const std::string& from, const std::string& to, unsigned bits)
{
    Add(FolderChange::Renamed, bits, from);
    Add(FolderChange::Renamed, bits, to);
}

void Watch::Lose()
{
    m_isLost = true;
    m_changes.AddEverything();
}

std::string Watch::SystemPath(const Folder& folder) const
{
    const std::string path = folder.PathOf(std::string());
    if (path.empty())
        return m_path;
    return (m_path == "/" ? m_path : m_path + '/') + path;
}

std::uint32_t Watch::SystemMask() const noexcept
{
    std::uint32_t mask = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF;
    mask |= (m_bits & kWatchContents) != 0 ? IN_MODIFY : 0U;
    mask |= (m_bits & kWatchStatus) != 0 ? IN_ATTRIB : 0U;
    mask |= (m_bits & kWatchLastAccess) != 0 ? IN_ACCESS : 0U;
    return mask;
}
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
    auto watch = std::make_unique<Watch>(std::move(path), withSubfolders, bits);
    bool started;
    int error;
    {
        Queue& queue = Queue::Get();
        const std::lock_guard<std::mutex> guard(queue.m_mutex);
        started = queue.Join(*watch) && watch->Restart();
        error = errno;
    }
    if (!started)
        watch.reset();
    errno = error;
    return started ? std::unique_ptr<FolderWatch>(std::move(watch)) : nullptr;
}
} // namespace tev::platform
