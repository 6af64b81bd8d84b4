#pragma once

#include <functional>
#include <memory>
#include <string>

// Changes in folders, collected by polling. There is no thread behind it.

namespace tev::platform
{
enum class FolderChange
{
    Added, ///< a folder with all that is in it, each entry reported by itself
    Removed,
    Modified,
    Renamed,
    Everything ///< too many changes to report: read the whole folder again
};

/// The path is relative to the watched folder, empty for Everything.
struct FolderEvent
{
    FolderChange change;
    std::wstring path;    ///< of Renamed the new one
    std::wstring oldPath; ///< of Renamed only
    bool isExchange;      ///< of Renamed: what had the new path has the old one now, instead of being replaced
};

/// Which changes are reported; any of the bits.
enum FolderWatchBits : unsigned
{
    kWatchFileNames = 0x1,
    kWatchFolderNames = 0x2,
    kWatchAttributes = 0x4,
    kWatchSize = 0x8,
    kWatchLastWrite = 0x10,
    kWatchLastAccess = 0x20, ///< of files
    kWatchCreation = 0x40,
    kWatchSecurity = 0x100
};

/// A watched folder, with all folders beneath it if that is asked for; links to folders are not followed, and folders
/// that this user may not read are left out. A folder that was deleted or moved away is watched again as soon as there
/// is one at its path, which does not depend on the process's current folder. Safe from several threads at once, each
/// object from one thread at a time.
class FolderWatch
{
public:
    using Report = std::function<void(const FolderEvent& event)>;

    /// How many bytes of entries are kept until the next Collect, counted as the other systems do: twelve bytes and the
    /// name in UTF-16, rounded up to four; a rename is two entries. More entries are reported as one Everything.
    static constexpr std::size_t kBufferSize = 4096;

    /// Null, with the error in errno, when the folder cannot be watched or one beneath it is more than the system's
    /// limit allows; nothing is left of the attempt then. Changes after the call are reported.
    static std::unique_ptr<FolderWatch> Start(const wchar_t* folder, bool withSubfolders, unsigned bits);

    virtual ~FolderWatch() = default;
    FolderWatch(const FolderWatch&) = delete;
    FolderWatch& operator=(const FolderWatch&) = delete;

    /// Reports the changes since the last call in their order, without waiting. After an exception, as for lack of
    /// memory, Everything is reported by the next call.
    virtual void Collect(const Report& report) = 0;

protected:
    FolderWatch() = default;
};
} // namespace tev::platform
