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
}

/// Collects what changes in folders, for a user interface that asks from time to time; no thread works behind it. The owner
/// calls CheckRefreshNotification, from a timer for example, and takes the changes when it says that there are some.
///
/// Folders are added and removed, and changes collected, by one thread at a time; AddChange, GetChanges, ReleaseChanges,
/// LockRefresh and UnlockRefresh are safe from several threads at once. The system limits how many folders a user may
/// watch; a tree takes as many as it has folders. Off Windows links to folders beneath the watched one are not followed,
/// folders that the user may not read are left out, and a watched folder that goes is picked up again when there is one of
/// its name: that, and that it went, is reported as a change of the whole folder.
class TEVTOOLS_API CWatchFolder
{
public:
    enum FileChange : int
    {
        xChangeAdded = 1,
        xChangeRemoved = 2,
        xChangeModified = 3,
        xChangeRenamed = 4,    ///< of the old name and of the new one
        xChangeWholeFolder = 5 ///< the path is that of a watched folder: look at it again
    };
    using Changes =
        CHashMap<CXTString<wchar_t>, const CXTString<wchar_t>&, FileChange, CHashMethods<CXTString<wchar_t>>>;

    // What a folder is watched for.
    static constexpr unsigned int kFileNames = 0x1; ///< files that come, go or are renamed
    static constexpr unsigned int kFolderNames = 0x2;
    static constexpr unsigned int kAttributes = 0x4;
    static constexpr unsigned int kSize = 0x8;
    static constexpr unsigned int kLastWrite =
        0x10; ///< Linux does not tell it from kAttributes where nothing is written
    static constexpr unsigned int kLastAccess = 0x20;
    static constexpr unsigned int kCreation = 0x40;
    static constexpr unsigned int kSecurity = 0x100;

    CWatchFolder();
    CWatchFolder(const CWatchFolder&) = delete;
    CWatchFolder& operator=(const CWatchFolder&) = delete;
    virtual ~CWatchFolder();

    /// Starts to watch a folder, with all folders beneath it where `watchSubtree`. True also when it is watched already,
    /// under whatever name. False, with nothing watched that was not before, when there is no such folder, it may not be
    /// read, or the system's limit is reached. Costs the reading of all folders of a tree.
    bool AddRefreshNotification(const CXTString<wchar_t>& folder, bool watchSubtree, unsigned int filter);
    /// Does nothing and answers false: see StopWatching.
    bool RemoveRefreshNotification(const CXTString<wchar_t>& folder);
    /// Ends the watch of one folder. False when it is not watched. Changes that were collected stay.
    bool StopWatching(const CXTString<wchar_t>& folder);
    /// Ends all watches.
    void RemoveAll();

    /// Collects what changed since the last call, and answers whether there are changes now. Of several changes of one path
    /// the last one counts, but something new that is modified stays new. A folder of which there is more to tell than
    /// some hundred changes has changed as a whole. Collects nothing and answers false while LockRefresh holds it off; while
    /// another thread holds the changes it waits; on the thread that holds them it collects nothing and answers true.
    bool CheckRefreshNotification();
    /// Holds CheckRefreshNotification off until as many calls of UnlockRefresh, which answers true when it is free again.
    void LockRefresh() noexcept;
    bool UnlockRefresh() noexcept;

    /// Records a change that the caller knows of. A thread that holds the changes adds to those that it holds.
    void AddChange(const CXTString<wchar_t>& path, FileChange change);
    /// The changes by their paths: what the watch was given, a separator, and the path beneath. The thread holds them, and
    /// keeps others from adding some, until it calls ReleaseChanges.
    const Changes& GetChanges() X_NO_THREAD_SAFETY_ANALYSIS;
    /// Forgets the changes and lets go of them. Does nothing on a thread that does not hold them. Always false.
    bool ReleaseChanges() X_NO_THREAD_SAFETY_ANALYSIS;

    /// From now on OnDeviceChange attends to volumes that come and go, whatever the option is, which is kept with the mask.
    void EnableDriveInsertionNotification(bool option, unsigned int driveMask) noexcept;
    /// The window that gets the system's messages about devices, where the system has such. Only the first call counts.
    void SetNotifyWindow(void* window) noexcept;

    // Events of OnDeviceChange, and the kinds of devices.
    static constexpr unsigned int kVolumeArrived = 0x8000;
    static constexpr unsigned int kQueryRemove = 0x8001;
    static constexpr unsigned int kQueryRemoveFailed = 0x8002;
    static constexpr unsigned int kRemovePending = 0x8003;
    static constexpr unsigned int kRemoveComplete = 0x8004;
    static constexpr unsigned int kDeviceVolume = 2;
    static constexpr unsigned int kDeviceHandle = 6;

    /// What the data of an event is the address of.
    struct DeviceEvent
    {
        unsigned int m_device;   ///< kDeviceVolume or kDeviceHandle
        const wchar_t* m_folder; ///< of a kDeviceHandle: the watched folder whose volume it is about
    };
    /// The owner tells of volumes. One that is to be removed makes the watch of its folder let go of it (kQueryRemove), and
    /// start again when the removal failed; one that was removed ends the watch. A volume that came, where that is attended
    /// to, makes watches start again that could not before. 1 when the event was handled, else 0; a null address is not.
    unsigned int OnDeviceChange(unsigned int event, unsigned __int64 data);

protected:
    /// Ends a watch, or only lets go of the folder and keeps the record. False when there is no such index.
    bool RemoveRefreshNotification(int index, bool keepRecord);

private:
    int IndexOf(const CXTString<wchar_t>& folder) const;
    bool HoldsChanges() const noexcept;
    void Record(const CXTString<wchar_t>& path, FileChange change) X_REQUIRES(m_lock);
    bool OnFolderOfVolume(unsigned int event, const wchar_t* folder);

    CXCriticalSection m_lock;
    CXTString<wchar_t> m_path; // of the change at hand
    bool m_driveInsertion = false;
    bool m_driveOption = false;
    std::atomic<int> m_refreshLocks{0};
    unsigned int m_driveMask = 0;
    std::vector<std::unique_ptr<tev::WatchRecord>> m_watches; // in the order in which they were added
    Changes m_changes X_GUARDED_BY(m_lock);
    void* m_notifyWindow = nullptr;
    std::atomic<unsigned __int64> m_holder{0}; // the thread between GetChanges and ReleaseChanges
};
