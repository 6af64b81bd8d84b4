#pragma once

#include "maps/CHashMap.h"
#include "objects/CXCriticalSection.h"
#include "text/CXTString.h"

#include <atomic>
#include <memory>
#include <vector>

namespace tev
{
struct WatchRecord;
namespace platform
{
struct FolderEvent;
}
} // namespace tev

/// Watches folders and collects changes of the files in them. It is polled and has no thread of its own: the owner
/// calls CheckRefreshNotification, from a timer for example, and fetches the changes when that returns true.
///
/// Folders are added and removed, and changes collected, by one thread at a time; AddChange, GetChanges,
/// ReleaseChanges, LockRefresh and UnlockRefresh are safe from several threads at once. The system limits how many
/// folders a user may watch; a tree takes one watch for each of its folders. Off Windows, links to folders beneath the
/// watched one are not followed and folders that the user may not read are left out. A watched folder that is removed
/// or moved away is watched again when a folder exists at its path; both are reported as a change of the whole folder.
class TEVTOOLS_API CWatchFolder
{
public:
    enum FileChange : int
    {
        xChangeAdded = 1,
        xChangeRemoved = 2,
        xChangeModified = 3,
        xChangeRenamed = 4,    ///< of the old name and of the new one
        xChangeWholeFolder = 5 ///< the path is that of a watched folder: read the folder again
    };
    using Changes =
        CHashMap<CXTString<wchar_t>, const CXTString<wchar_t>&, FileChange, CHashMethods<CXTString<wchar_t>>>;

    /// A change in the list of changes. A rename is one entry with both names.
    struct OrderedChange
    {
        FileChange m_change;
        CXTString<wchar_t> m_path;    ///< of a rename the new name
        CXTString<wchar_t> m_oldPath; ///< of a rename
        bool m_isExchange;            ///< of a rename: what had the new name has the old one now, else it was replaced
    };
    using ChangeList = std::vector<OrderedChange>;

    // Filter bits.
    static constexpr unsigned int kFileNames = 0x1; ///< files are created, deleted or renamed
    static constexpr unsigned int kFolderNames = 0x2;
    static constexpr unsigned int kAttributes = 0x4;
    static constexpr unsigned int kSize = 0x8;
    static constexpr unsigned int kLastWrite = 0x10;  ///< Linux reports a time set without a write as kAttributes too
    static constexpr unsigned int kLastAccess = 0x20; ///< of files
    static constexpr unsigned int kCreation = 0x40;
    static constexpr unsigned int kSecurity = 0x100;

    CWatchFolder();
    CWatchFolder(const CWatchFolder&) = delete;
    CWatchFolder& operator=(const CWatchFolder&) = delete;
    virtual ~CWatchFolder();

    /// Starts to watch a folder, and all folders beneath it if `watchSubtree`; one whose watch was closed (see
    /// OnDeviceChange), too. Also true when the folder is watched already, under any name. False, with no change, when
    /// there is no such folder, it may not be read, or the system's limit is reached: XLastFailure() says which. Reads all folders of the
    /// tree.
    bool AddRefreshNotification(const CXTString<wchar_t>& folder, bool watchSubtree, unsigned int filter);
    /// Does nothing and returns false: see StopWatching.
    bool RemoveRefreshNotification(const CXTString<wchar_t>& folder);
    /// Ends the watch of one folder. False when it is not watched. Collected changes stay.
    bool StopWatching(const CXTString<wchar_t>& folder);
    /// Ends all watches.
    void RemoveAll();

    /// Collects what changed since the last call and returns whether the map holds changes. Of several changes of one
    /// path the last one counts, but what was added or renamed and is modified stays added or renamed. More changes of
    /// one watched folder than its buffer holds, some hundred, are reported as xChangeWholeFolder. Collects nothing and
    /// returns false while refreshing is locked; waits while another thread holds the changes; on the thread that holds
    /// them it collects nothing and returns true.
    bool CheckRefreshNotification();
    /// Locks CheckRefreshNotification until as many calls of UnlockRefresh, which returns true when it is unlocked
    /// again.
    void LockRefresh() noexcept;
    bool UnlockRefresh() noexcept;

    /// Adds a change to the map; on the thread that holds the changes, to the map that it holds.
    void AddChange(const CXTString<wchar_t>& path, FileChange change);
    /// The changes by path: the folder as it was given, a separator, and the path beneath. The calling thread holds the
    /// map, and other threads wait to add to it, until it calls ReleaseChanges.
    const Changes& GetChanges() X_NO_THREAD_SAFETY_ANALYSIS;
    /// The same changes in their order, for a caller that keeps a list of files up to date: unlike the map it has each
    /// rename as a pair of names, so that renamed folders need not be read again. An old name that the caller does not
    /// know was created at the moment in which its folder was read: the new name is added then. The thread must hold the
    /// changes. After some ten thousand changes that were not fetched, the list is one xChangeWholeFolder for each
    /// watched folder.
    const ChangeList& GetChangeList() const noexcept X_NO_THREAD_SAFETY_ANALYSIS { return m_list; }
    /// Empties the map and the list and releases them. Does nothing on a thread that does not hold them. Always false.
    bool ReleaseChanges() X_NO_THREAD_SAFETY_ANALYSIS;

    /// OnDeviceChange handles volume events from now on, whatever the option; option and mask are stored.
    void EnableDriveInsertionNotification(bool option, unsigned int driveMask) noexcept;
    /// The window that receives the system's device messages, where the system has such. Only the first call counts.
    void SetNotifyWindow(void* window) noexcept;

    // Events of OnDeviceChange, and the kinds of devices.
    static constexpr unsigned int kVolumeArrived = 0x8000;
    static constexpr unsigned int kQueryRemove = 0x8001;
    static constexpr unsigned int kQueryRemoveFailed = 0x8002;
    static constexpr unsigned int kRemovePending = 0x8003;
    static constexpr unsigned int kRemoveComplete = 0x8004;
    static constexpr unsigned int kDeviceVolume = 2;
    static constexpr unsigned int kDeviceHandle = 6;

    /// The data of an event is the address of one of these.
    struct DeviceEvent
    {
        unsigned int m_device;   ///< kDeviceVolume or kDeviceHandle
        const wchar_t* m_folder; ///< for kDeviceHandle: the watched folder on that volume
    };
    /// The owner forwards device events. For a watched folder, kQueryRemove closes its watch but keeps the record,
    /// kQueryRemoveFailed starts it again, and a removal ends it. When volume events are enabled, kVolumeArrived starts
    /// closed watches again. Returns 1 when the event was handled, else 0, as for a null address.
    unsigned int OnDeviceChange(unsigned int event, unsigned __int64 data);

protected:
    /// Ends a watch, or closes it and keeps its record. False when there is no such index.
    bool RemoveRefreshNotification(int index, bool keepRecord);

private:
    int IndexOf(const CXTString<wchar_t>& folder) const;
    bool HoldsChanges() const noexcept;
    bool Restart(tev::WatchRecord& record);
    void Record(const CXTString<wchar_t>& path, FileChange change) X_REQUIRES(m_lock);
    void RecordEvent(const CXTString<wchar_t>& folder, const tev::platform::FolderEvent& event) X_REQUIRES(m_lock);
    bool OnFolderOfVolume(unsigned int event, const wchar_t* folder);

    tev::ObjectLock m_lock{tev::ObjectLock::kProgramWeight}; // a program may hold it for long
    CXTString<wchar_t> m_path;                               // of the change being recorded
    bool m_driveInsertion = false;
    bool m_driveOption = false;
    std::atomic<int> m_refreshLocks{0};
    unsigned int m_driveMask = 0;
    std::vector<std::unique_ptr<tev::WatchRecord>> m_watches; // in the order in which they were added
    Changes m_changes X_GUARDED_BY(m_lock);
    void* m_notifyWindow = nullptr;
    std::atomic<unsigned __int64> m_holder{0}; // the number of the thread between GetChanges and ReleaseChanges
    ChangeList m_list X_GUARDED_BY(m_lock);
};

/// Holds the collected changes while it exists, and releases them: GetChanges and ReleaseChanges. Destroyed on its thread,
/// which makes one at a time: `for (const auto& [path, change] : CXFolderChanges(watcher))`.
class CXFolderChanges
{
public:
    explicit CXFolderChanges(CWatchFolder& watcher) : m_watcher(watcher), m_changes(watcher.GetChanges()) {}
    ~CXFolderChanges() { m_watcher.ReleaseChanges(); }
    CXFolderChanges(const CXFolderChanges&) = delete;
    CXFolderChanges& operator=(const CXFolderChanges&) = delete;

    const CWatchFolder::Changes& GetMap() const noexcept { return m_changes; }
    const CWatchFolder::ChangeList& GetList() const noexcept { return m_watcher.GetChangeList(); }
    auto begin() const noexcept { return m_changes.begin(); }
    auto end() const noexcept { return m_changes.end(); }

private:
    CWatchFolder& m_watcher;
    const CWatchFolder::Changes& m_changes;
};

/// Locks CWatchFolder::CheckRefreshNotification while it exists.
class CXRefreshLock
{
public:
    explicit CXRefreshLock(CWatchFolder& watcher) noexcept : m_watcher(watcher) { m_watcher.LockRefresh(); }
    ~CXRefreshLock() { m_watcher.UnlockRefresh(); }
    CXRefreshLock(const CXRefreshLock&) = delete;
    CXRefreshLock& operator=(const CXRefreshLock&) = delete;

private:
    CWatchFolder& m_watcher;
};
