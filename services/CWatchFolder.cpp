#include "services/CWatchFolder.h"

#include "objects/CXException.h"
#include "objects/FailureNote.h"
#include "platform/Cancellation.h"
#include "platform/FolderWatch.h"
#include "platform/PathNames.h"
#include "platform/SystemErrors.h"
#include "platform/ThreadLocks.h"
#include "services/Paths.h"
#include "text/TextView.h"

#include <string_view>

namespace tev
{
/// The arguments of AddRefreshNotification, and the watch, which is null while it is closed.
struct WatchRecord
{
    bool Start()
    {
        m_watch = platform::FolderWatch::Start(m_folder, m_watchSubtree, m_filter);
        return m_watch != nullptr;
    }

    CXTString<wchar_t> m_folder; // ends with a separator
    bool m_watchSubtree;
    unsigned m_filter;
    std::unique_ptr<platform::FolderWatch> m_watch;
};
} // namespace tev

namespace
{
using tev::WatchRecord;
using tev::platform::FolderChange;
using tev::platform::FolderEvent;

constexpr std::size_t kLongestList = 0x8000;

static_assert(CWatchFolder::kFileNames == tev::platform::kWatchFileNames &&
              CWatchFolder::kFolderNames == tev::platform::kWatchFolderNames &&
              CWatchFolder::kAttributes == tev::platform::kWatchAttributes &&
              CWatchFolder::kSize == tev::platform::kWatchSize &&
              CWatchFolder::kLastWrite == tev::platform::kWatchLastWrite &&
              CWatchFolder::kLastAccess == tev::platform::kWatchLastAccess &&
              CWatchFolder::kCreation == tev::platform::kWatchCreation &&
              CWatchFolder::kSecurity == tev::platform::kWatchSecurity);

CXTString<wchar_t> WithSeparator(const CXTString<wchar_t>& folder)
{
    const std::wstring_view path = tev::ViewOf(folder);
    if (path.empty())
        return folder; // and not the root
    CXTString<wchar_t> result = folder.Left(static_cast<int>(path.find_last_not_of(L"/\\") + 1));
    result += tev::platform::kPathSeparator;
    return result;
}

CWatchFolder::FileChange ToFileChange(FolderChange change)
{
    switch (change)
    {
    case FolderChange::Added:
        return CWatchFolder::xChangeAdded;
    case FolderChange::Removed:
        return CWatchFolder::xChangeRemoved;
    case FolderChange::Modified:
        return CWatchFolder::xChangeModified;
    case FolderChange::Renamed:
        return CWatchFolder::xChangeRenamed;
    case FolderChange::Everything:
        break;
    }
    return CWatchFolder::xChangeWholeFolder;
}
} // namespace

CWatchFolder::CWatchFolder() = default;

CWatchFolder::~CWatchFolder()
{
    RemoveAll();
}

bool CWatchFolder::AddRefreshNotification(const CXTString<wchar_t>& folder, bool watchSubtree, unsigned int filter)
{
    constexpr const char* kOperation = "CWatchFolder::AddRefreshNotification";
    if (!fileIsDirectory(folder))
        return tev::NoteSystemError(kOperation, tev::platform::kPathNotFound, folder);
    const int index = IndexOf(folder);
    if (index >= 0 && m_watches[static_cast<std::size_t>(index)]->m_watch != nullptr)
        return true;
    auto record = std::make_unique<WatchRecord>(WatchRecord{WithSeparator(folder), watchSubtree, filter, nullptr});
    // The list is complete while the folder is read, because the process may fork meanwhile.
    if (index < 0)
        m_watches.reserve(m_watches.size() + 1);
    if (!(index < 0 ? record->Start() : Restart(*record)))
        return tev::NoteLastError(kOperation, folder);
    if (index < 0)
        m_watches.push_back(std::move(record));
    else
        m_watches[static_cast<std::size_t>(index)] = std::move(record);
    return true;
}

bool CWatchFolder::RemoveRefreshNotification(const CXTString<wchar_t>&)
{
    return false;
}

bool CWatchFolder::RemoveRefreshNotification(int index, bool keepRecord)
{
    if (index < 0 || static_cast<std::size_t>(index) >= m_watches.size())
        return false;
    if (keepRecord)
        m_watches[static_cast<std::size_t>(index)]->m_watch.reset();
    else
        m_watches.erase(m_watches.begin() + index);
    return true;
}

bool CWatchFolder::StopWatching(const CXTString<wchar_t>& folder)
{
    return RemoveRefreshNotification(IndexOf(folder), false);
}

void CWatchFolder::RemoveAll()
{
    m_watches.clear();
}

bool CWatchFolder::CheckRefreshNotification()
{
    if (HoldsChanges()) // no destructor would release them
        return m_refreshLocks.load(std::memory_order_relaxed) == 0;
    tev::platform::PassCancellationPoint();
    if (m_refreshLocks.load(std::memory_order_relaxed) > 0)
        return false;
    const tev::LockGuard guard(m_lock);
    for (const std::unique_ptr<WatchRecord>& record : m_watches)
    {
        if (record->m_watch == nullptr)
            continue;
        record->m_watch->Collect([&](const FolderEvent& event)
                                     X_REQUIRES(m_lock) { RecordEvent(record->m_folder, event); });
    }
    return m_changes.GetCount() != 0;
}

void CWatchFolder::LockRefresh() noexcept
{
    ++m_refreshLocks;
}

bool CWatchFolder::UnlockRefresh() noexcept
{
    int locks = m_refreshLocks.load();
    while (locks > 0 && !m_refreshLocks.compare_exchange_weak(locks, locks - 1))
    {
    }
    return locks <= 1;
}

void CWatchFolder::AddChange(const CXTString<wchar_t>& path, FileChange change)
{
    const tev::LockGuard guard(m_lock);
    Record(path, change);
    m_list.push_back({change, path, {}, false});
}

const CWatchFolder::Changes& CWatchFolder::GetChanges()
{
    if (!HoldsChanges())
    {
        m_lock.Lock();
        m_holder = tev::platform::NumberOfThisThread();
    }
    return m_changes;
}

bool CWatchFolder::ReleaseChanges()
{
    if (HoldsChanges())
    {
        m_changes.Clear();
        m_list.clear();
        m_holder = 0;
        m_lock.Unlock();
    }
    return false;
}

void CWatchFolder::EnableDriveInsertionNotification(bool option, unsigned int driveMask) noexcept
{
    m_driveInsertion = true;
    m_driveOption = option;
    m_driveMask = driveMask;
}

void CWatchFolder::SetNotifyWindow(void* window) noexcept
{
    if (m_notifyWindow == nullptr)
        m_notifyWindow = window;
}

unsigned int CWatchFolder::OnDeviceChange(unsigned int event, unsigned __int64 data)
{
    const auto* device = reinterpret_cast<const DeviceEvent*>(static_cast<std::uintptr_t>(data));
    if (device == nullptr)
        return tev::NoteBadArgument("CWatchFolder::OnDeviceChange") ? 1 : 0;
    if (device->m_device == kDeviceHandle)
        return OnFolderOfVolume(event, device->m_folder) ? 1 : 0;
    if (device->m_device != kDeviceVolume || !m_driveInsertion || (event != kVolumeArrived && event != kRemoveComplete))
        return 0;
    // The watches themselves notice a volume that was removed.
    for (const std::unique_ptr<WatchRecord>& record : m_watches)
    {
        if (event == kVolumeArrived && record->m_watch == nullptr)
            Restart(*record);
    }
    return 1;
}

bool CWatchFolder::OnFolderOfVolume(unsigned int event, const wchar_t* folder)
{
    const int index = IndexOf(folder);
    switch (event)
    {
    case kQueryRemove:
        return RemoveRefreshNotification(index, true);
    case kQueryRemoveFailed:
        return index >= 0 && (m_watches[static_cast<std::size_t>(index)]->m_watch != nullptr ||
                              Restart(*m_watches[static_cast<std::size_t>(index)]));
    case kRemovePending:
    case kRemoveComplete:
        return RemoveRefreshNotification(index, false);
    default:
        return false;
    }
}

// What changed in the folder while it was not watched is not known.
bool CWatchFolder::Restart(WatchRecord& record)
{
    if (!record.Start())
        return tev::NoteLastError("CWatchFolder::OnDeviceChange", record.m_folder);
    AddChange(record.m_folder, xChangeWholeFolder);
    return true;
}

int CWatchFolder::IndexOf(const CXTString<wchar_t>& folder) const
{
    const CXTString<wchar_t> path = WithSeparator(folder);
    for (std::size_t i = 0; i < m_watches.size(); ++i)
    {
        // A folder that was deleted is known by its path only.
        if (m_watches[i]->m_folder == path || fileIsSameDirectory(m_watches[i]->m_folder, folder))
            return static_cast<int>(i);
    }
    return -1;
}

bool CWatchFolder::HoldsChanges() const noexcept
{
    return m_holder.load(std::memory_order_relaxed) == tev::platform::NumberOfThisThread();
}

void CWatchFolder::RecordEvent(const CXTString<wchar_t>& folder, const FolderEvent& event)
{
    if (m_list.size() >= kLongestList)
    {
        m_list.clear();
        for (const std::unique_ptr<WatchRecord>& record : m_watches)
            m_list.push_back({xChangeWholeFolder, record->m_folder, {}, false});
    }
    const FileChange change = ToFileChange(event.change);
    // The buffer of m_path serves one change after another. While it is moved away, m_path is the old path, which only renames
    // have: without one it owns no buffer, and nothing is allocated for it.
    CXTString<wchar_t> path(std::move(m_path));
    if (change == xChangeRenamed)
    {
        m_path = folder;
        m_path.Append(event.oldPath.data(), event.oldPath.size());
        Record(m_path, change);
    }
    path = folder;
    path.Append(event.path.data(), event.path.size());
    Record(path, change);
    m_list.push_back({change, path, std::move(m_path), event.isExchange});
    m_path = std::move(path);
}

void CWatchFolder::Record(const CXTString<wchar_t>& path, FileChange change)
{
    // Reading the file or folder again shows what was modified, too.
    const FileChange* earlier = change == xChangeModified ? m_changes.Find(path) : nullptr;
    if (earlier != nullptr && (*earlier == xChangeAdded || *earlier == xChangeRenamed))
        return;
    if (m_changes.Insert(path, change) == 0 && m_changes.Find(path) == nullptr)
        CXMemoryException::Throw();
}
