#include "platform/posix/watch/InotifyQueue.h"
#include "platform/Cancellation.h"

#include <algorithm>
#include <iterator>

#include <sys/ioctl.h>
#include <unistd.h>

namespace tev::platform
{
namespace
{
constexpr std::uint32_t kRename = IN_MOVED_FROM | IN_MOVED_TO;
// The events of one rename follow each other, unless other threads rename at the same moment.
constexpr std::size_t kSearched = 64;
} // namespace

void EventBatch::Read(int descriptor)
{
    m_bytes.clear();
    Append(descriptor);
    Index();
    if (MayBeIncomplete() && Append(descriptor))
        Index();
}

bool EventBatch::Append(int descriptor)
{
    const WithoutCancellation whole;
    int waiting = 0;
    if (ioctl(descriptor, FIONREAD, &waiting) != 0 || waiting <= 0)
        return false;
    const std::size_t before = m_bytes.size();
    m_bytes.resize(before + static_cast<std::size_t>(waiting));
    const ssize_t size = read(descriptor, m_bytes.data() + before, static_cast<std::size_t>(waiting));
    m_bytes.resize(before + static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    return size > 0;
}

void EventBatch::Index()
{
    m_events.clear();
    m_arrivals.clear();
    for (std::size_t position = 0; position < m_bytes.size();)
    {
        // The system pads names such that each event is aligned.
        const auto* event = reinterpret_cast<const inotify_event*>(m_bytes.data() + position);
        if ((event->mask & IN_MOVED_TO) != 0)
            m_arrivals[event->cookie] = m_events.size();
        m_events.push_back(event);
        position += sizeof *event + event->len;
    }
}

/// Whether the batch may have been read in the middle of a rename.
bool EventBatch::MayBeIncomplete() const
{
    return !m_events.empty() && ((m_events.back()->mask & kRename) != 0 ||
                                 std::any_of(m_events.begin(), m_events.end(), [this](const inotify_event* event) {
                                     return (event->mask & IN_MOVED_FROM) != 0 && ArrivalOf(event->cookie) == kNone;
                                 }));
}

bool EventBatch::HasRenamedFolders() const
{
    return std::any_of(m_events.begin(), m_events.end(), [](const inotify_event* event) {
        return (event->mask & kRename) != 0 && (event->mask & IN_ISDIR) != 0;
    });
}

std::size_t EventBatch::ArrivalOf(std::uint32_t cookie) const
{
    const auto found = m_arrivals.find(cookie);
    return found == m_arrivals.end() ? kNone : found->second;
}

std::size_t EventBatch::NextRename(std::size_t index, int number, int otherNumber) const
{
    const std::size_t end = std::min(Size(), index + kSearched);
    for (std::size_t i = index + 1; i < end; ++i)
    {
        const inotify_event& event = *m_events[i];
        if ((event.mask & kRename) != 0 && (event.wd == number || event.wd == otherNumber))
            return i;
    }
    return kNone;
}

bool EventBatch::IsNamedAfter(std::size_t index, int number, const std::string& name) const
{
    return std::any_of(
        m_events.begin() + static_cast<std::ptrdiff_t>(index) + 1, m_events.end(),
        [&](const inotify_event* event) { return event->wd == number && event->len != 0 && name == event->name; });
}

int EventBatch::FirstMovedAfter(std::size_t index, int number, int otherNumber) const
{
    for (std::size_t i = index + 1; i < Size() && (m_events[i]->mask & IN_MOVED_FROM) == 0; ++i)
    {
        const int moved = m_events[i]->wd;
        if ((m_events[i]->mask & IN_MOVE_SELF) != 0 && (moved == number || moved == otherNumber))
            return moved;
    }
    return -1;
}

bool InotifyQueue::Open()
{
    const WithoutCancellation whole;
    if (m_descriptor < 0)
        m_descriptor = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    return m_descriptor >= 0;
}

void InotifyQueue::Close() noexcept
{
    const WithoutCancellation whole;
    if (m_descriptor >= 0)
        close(m_descriptor);
    m_descriptor = -1;
    for (const auto& entry : m_folders)
        entry.second->m_number = -1;
    m_folders.clear();
    m_unused.clear();
}

int InotifyQueue::NumberOf(const char* path, std::uint32_t mask)
{
    ReserveUnused();
    const int number = inotify_add_watch(m_descriptor, path, mask | IN_MASK_ADD | IN_ONLYDIR | IN_EXCL_UNLINK);
    if (number >= 0)
        m_unused.push_back(number);
    return number;
}

void InotifyQueue::Bind(NumberedFolder& folder, int number)
{
    ReserveUnused();
    m_folders.emplace(number, &folder);
    folder.m_number = number;
}

void InotifyQueue::Unbind(NumberedFolder& folder) noexcept
{
    const auto [first, last] = m_folders.equal_range(folder.m_number);
    const auto own = std::find_if(first, last, [&](const auto& entry) { return entry.second == &folder; });
    if (own != last)
    {
        m_folders.erase(own);
        m_unused.push_back(folder.m_number); // there is room, see ReserveUnused
    }
    folder.m_number = -1;
}

void InotifyQueue::FoldersOf(int number, std::vector<NumberedFolder*>& folders) const
{
    folders.clear();
    const auto [first, last] = m_folders.equal_range(number);
    std::transform(first, last, std::back_inserter(folders), [](const auto& entry) { return entry.second; });
}

bool InotifyQueue::IsBound(int number, const NumberedFolder* folder) const
{
    const auto [first, last] = m_folders.equal_range(number);
    return std::any_of(first, last, [&](const auto& entry) { return entry.second == folder; });
}

/// Room for one more number, and for those of all folders, which are unbound in destructors.
void InotifyQueue::ReserveUnused()
{
    const std::size_t needed = m_unused.size() + m_folders.size() + 2;
    if (m_unused.capacity() < needed)
        m_unused.reserve(2 * needed);
}

void InotifyQueue::ReleaseUnused() noexcept
{
    for (const int number : m_unused)
    {
        if (m_descriptor >= 0 && m_folders.count(number) == 0)
            inotify_rm_watch(m_descriptor, number);
    }
    m_unused.clear();
}
} // namespace tev::platform
